#!/usr/bin/env python3
"""Puts one small fault at a time into the sources of zelk/ and sees whether the tests notice.

usage: mutate.py [count] [seed] [first]: as many faults, from the first that is to be tried

Each fault is built and tested with the short roads and without, in copies of the tree under
build/mutate, one for each processor. A fault is killed when a test fails, hangs or does not end
normally; one that leaves the programs of both builds as they were is equal in effect, or lies in
what is not compiled into any of them: a trap in the same block changes nothing either. The others
survive and are listed; then the exit status is 1. What fails before there is a fault is printed, and
kept in build/mutate. First go the tests that have killed faults in the same file, then those of the
same folder, then the quick ones; the first that fails ends it. All kinds of faults take turns.
"""
import collections
import concurrent.futures
import contextlib
import hashlib
import itertools
import os
import pathlib
import queue
import random
import re
import shutil
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
WORK = ROOT / "build" / "mutate"
BUILDS = {"short": [], "reference": ["-DZELK_REFERENCE_ONLY=ON", "-DZELK_ARRAYS=OFF"]}
# Both trees compile the same, and what a fault has changed comes back.
CCACHE = ["-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"] if shutil.which("ccache") else []
os.environ |= {"CCACHE_BASEDIR": str(WORK), "CCACHE_DIR": str(WORK / "ccache"), "GTEST_FAIL_FAST": "1"}

SWAPS = [
    # Comparisons, and their edges.
    (" < ", [" <= ", " >= "]), (" <= ", [" < ", " > "]), (" > ", [" >= ", " <= "]),
    (" >= ", [" > ", " < "]), (" == ", [" != "]), (" != ", [" == "]),
    # Signs, shifts, bits, conditions.
    (" + ", [" - "]), (" - ", [" + "]), (" += ", [" -= "]), (" -= ", [" += "]), ("++", ["--"]),
    (" << ", [" >> "]), (" >> ", [" << "]), (" | ", [" & ", " ^ "]), (" & ", [" | "]),
    (" ^ ", [" | "]), (" && ", [" || "]), (" || ", [" && "]), (" * ", [" + "]), (" % ", [" / "]),
    ("false", ["true"]), ("true", ["false"]), ("std::min", ["std::max"]), ("std::max", ["std::min"]),
    # Directions.
    ("ROUND_TOWARD_POSITIVE", ["ROUND_TOWARD_NEGATIVE"]), ("upward", ["downward"]),
    ("ROUND_TOWARD_NEGATIVE", ["ROUND_TOWARD_POSITIVE"]), ("downward", ["upward"]),
    # Members of one type.
    (".exp_width", [".mant_width"]), (".mant_width", [".exp_width"]),
    ("::overflow", ["::underflow"]), ("::underflow", ["::overflow"]),
]
# What else a person gets wrong in a line: a pattern, and what its groups become.
NAME = r"[A-Za-z_][\w.\[\]]*"
PATTERNS = [
    ("no negation", r"(?<=[(\s])[!~-](?=[a-z(])", ""),
    ("a number one off", r"(?<=[-+<>=&|*/(] )\d+\b(?![.\w])|(?<=[(,])\d+(?=[,)])",
     lambda m: str(int(m.group()) + 1)),
    ("no early return", r"^(\s+)if \([^;]*\) (\[\[\w+\]\] )?(return|throw|continue|break)\b.*;$", r"\1;"),
    ("no early return", r"^(\s+)(return|continue|break)( r| false|)(;.*)$", r"\1;"),
    ("never so", r"\bif \((\w[^;{]*)\) (\[\[\w+\]\] )?\{$", r"if (false && (\1)) {"),
    ("swapped arguments", rf"(?<=\w\()({NAME}), ({NAME})(?=[,)])", r"\2, \1"),
    ("swapped arguments", rf"(?<=\w\()({NAME}, )({NAME}), ({NAME})(?=[,)])", r"\1\3, \2"),
    ("a short loop", r"(\b(?:for|while) \(.*?[\w)\]]) (<|<=|!=) (?=\w)", r"\1 + 1 \2 "),
    ("a short loop", r"(\bfor \(.*[\w ]+ = )(\w[^;,]*)(?=; .*(--|-= ))", r"\1\2 - 1"),
    ("a late loop", r"(\bfor \(.*[\w ]+ = )([^;,]*)(?=; .*(\+\+|\+= ))", r"\1\2 + 1"),
    # Kept from one call to the next, or not set among others.
    ("a stale value", r"^(\s+)((?!return|const|static|using|case|goto|else|delete|throw)[\w:]+(?:<[^()=]*>)? \w+"
     r"(?:\[[^]]*\])?(?: = [^;]*|\{[^;]*\})?;)$", r"\1static \2"),
    ("a stale value", r"(?<=[ ;])[\w.>\[\]-]+ = [^,;(){}]+, (?=\w[\w.>\[\]-]* = )", ""),
    ("a flag lost", r"\brules::(invalid|divide_by_zero|overflow|underflow|inexact)\b", "0"),
    ("a flag lost", r"((?:raise\(|flags =|flags \|=|\{\.flags = ).*) \| [\w.:{} ]*\b(?=[;),}])", r"\1"),
    ("a flag raised", r"\b(raise\(s, )(?!true)[^;]*(, rules::\w+\);)", r"\1true\2"),
    ("a flag raised", r"(\braise\((?:\*this|env), |\.raise\()(?!unsigned)", r"\g<1>1 | "),
]
# The opening of a block of statements, behind which another one can stand.
BLOCK = re.compile(r"(\)|\bconst|\bnoexcept|\boverride|\belse|\bdo|\btry) \{")
# A statement that can go: an assignment or a call, on a line of its own.
STATEMENT = re.compile(r"^\s+(?!return|throw|using|static|const|auto|case|break|continue|template|delete)"
                       r"[\w.>\[\]:-]+(\s*([-+*/|&^]|<<|>>)?=[^=]|\().*;$")
# A declaration: its type and the name; more names may follow.
DECLARED = re.compile(r"(?<![\w:.])((?:unsigned )?[A-Za-z_][\w:]*(?:<[^<>()]*>)?)(?: const)?[ &*]+"
                      r"([A-Za-z_]\w*)(?=[,;)\[{]| = )")
ANOTHER = re.compile(r"(?<=, )([a-z]\w*)(?= = |[,;\[{])")

Fault = collections.namedtuple("Fault", "file line text group kind")


def names(lines):
    """For each line, the names in scope: those declared since the last end of a function, by type."""
    by_type = collections.defaultdict(list)
    for line in lines:
        if re.match(r"(  )?\}", line):
            by_type = collections.defaultdict(list)
        for match in DECLARED.finditer(line):
            if match[1] in ("return", "else", "new", "delete", "using", "typename", "throw", "case", "class"):
                continue
            more = [] if "(" in line else ANOTHER.findall(line[match.end():])
            by_type[match[1]] += [name for name in [match[2], *more] if name not in by_type[match[1]]]
        yield by_type


def faults_of(path):
    """All faults that the lines of a file offer."""
    lines = path.read_text().splitlines()
    file = str(path.relative_to(ROOT))
    scopes = names([line.split("//")[0] for line in lines])
    for number, (line, scope) in enumerate(zip(lines, scopes)):
        code = line.split("//")[0].rstrip()
        if not code.strip() or code.lstrip().startswith(("#", "template", "static_assert", "operator")):
            continue
        if "friend" in code or "= delete" in code or "= default" in code or "extern" in code:
            continue
        def fault(start, end, new, group, kind):
            return Fault(file, number, code[:start] + new + code[end:], group, kind)
        for old, news in SWAPS:
            for match in re.finditer(re.escape(old), code):
                if '"' not in code[:match.start()]:
                    for new in news:
                        yield fault(match.start(), match.end(), new, "operator",
                                    f"{old.strip()} to {new.strip()}")
        for kind, pattern, replacement in PATTERNS:
            for match in re.finditer(pattern, code):
                new = replacement(match) if callable(replacement) else match.expand(replacement)
                if new != match.group() and ('"' not in match.group() or kind == "no early return"):
                    yield fault(match.start(), match.end(), new, kind, kind)
        for siblings in scope.values():
            for old, new in zip(siblings, siblings[1:] + siblings[:1]):
                for match in re.finditer(rf'(?<![\w.>:&*] )(?<![\w.>:"]){old}\b(?! = |\()', code):
                    if old != new:
                        yield fault(match.start(), match.end(), new, "name", f"{old} to {new}")
        if STATEMENT.match(code) and code.count("(") == code.count(")"):
            yield Fault(file, number, re.match(r"\s*", code).group() + ";", "no statement", "no statement")


def sample(count, seed):
    """Faults of all groups in turn, those of each from anywhere."""
    chance = random.Random(seed)
    groups = collections.defaultdict(list)
    for path in sorted(ROOT.glob("zelk/**/*.*")):
        for fault in faults_of(path):
            groups[fault.group].append(fault)
    for found in groups.values():
        chance.shuffle(found)
    in_turn = itertools.chain.from_iterable(itertools.zip_longest(*groups.values()))
    return list(itertools.islice(filter(None, in_turn), count))


def run(command, log, seconds=3600):
    """Whether a command succeeds; what it prints goes to the file log, of which it is all."""
    with open(log, "w") as output:
        try:
            return subprocess.run(command, stdout=output, stderr=subprocess.STDOUT,
                                  timeout=seconds).returncode == 0
        except subprocess.TimeoutExpired:
            output.write(f"\nno end after {seconds} s: {' '.join(map(str, command))}\n")
            return False


def trapped(lines, number):
    """The number and text of a line, the nearest that opens a block around this one, with a trap in
    the block; None outside of all."""
    inner = len(lines[number])
    for k in range(number, -1, -1):
        depth = len(lines[k]) - len(lines[k].lstrip())
        opening = BLOCK.search(lines[k])
        encloses = k == number or (depth < inner and lines[k].endswith("{"))
        if opening and encloses and "switch" not in lines[k]:
            return k, lines[k][:opening.end()] + " __builtin_trap();" + lines[k][opening.end():]
        if lines[k].strip():
            inner = min(inner, depth)
    return None


class Tree:
    """A copy of the sources with its builds."""

    seconds = {}  # what programs of tests and their builds take: the short roads first, the quick first
    kills = collections.Counter()

    def __init__(self, number):
        self.source = WORK / f"tree{number}"
        self.log = WORK / f"tree{number}.log"
        shutil.rmtree(self.source, ignore_errors=True)
        ignored = shutil.ignore_patterns("build", ".git", "docs")
        shutil.copytree(ROOT, self.source, ignore=ignored)
        for build, options in BUILDS.items():
            if not run(["cmake", "-S", self.source, "-B", self.folder(build), "-G", "Ninja", *CCACHE,
                        "-DCMAKE_BUILD_TYPE=None", "-DCMAKE_CXX_FLAGS=-O1 -DNDEBUG", *options], self.log):
                self.give_up(f"cmake fails ({build})")
            if not run(["cmake", "--build", self.folder(build), "-j", str(os.cpu_count()), "--target",
                        *self.tests(build)], self.log):
                self.give_up(f"the tests do not compile without a fault ({build})")
        if not self.seconds:
            times = {(program, build): self.time(program, build)
                     for build in BUILDS for program in self.tests(build)}
            Tree.seconds = dict(sorted(times.items(), key=lambda item: (item[0][1] != "short", item[1])))
        self.originals = {key: self.digest(*key) for key in self.seconds}

    def tests(self, build):
        """The tests that are programs of their own name."""
        listed = subprocess.run(["ctest", "--test-dir", self.folder(build), "-N"],
                                capture_output=True, text=True, check=True).stdout
        return re.findall(r"Test +#\d+: (fuzz_\w+|\w+_test|format|prove)$", listed, re.M)

    def time(self, program, build):
        start = time.monotonic()
        if not self.passes(program, build):
            self.give_up(f"{program} fails without a fault ({build})")
        return time.monotonic() - start

    def give_up(self, reason):
        raise SystemExit(f"{self.log.read_text()}\nmutate: {reason}; the output above is kept in "
                         f"{self.log.relative_to(ROOT)}")

    def folder(self, build):
        return self.source / "build" / build

    def digest(self, program, build):
        """What identifies a program, after it is built; None when it cannot be."""
        folder = self.folder(build)
        if not run(["cmake", "--build", folder, "-j", "1", "--target", program], self.log):
            return None
        paths = [path for path in (folder / program, folder / "tests" / program) if path.is_file()]
        return hashlib.sha256(paths[0].read_bytes()).digest() if paths else None

    def passes(self, program, build):
        seconds = 60 + 8 * self.seconds.get((program, build), 100)
        return run(["timeout", str(seconds), "ctest", "--test-dir", self.folder(build), "-R",
                    f"^{program}$", "--output-on-failure"], self.log)

    @contextlib.contextmanager
    def changed(self, file, number, text):
        """The tree with another text in one line."""
        path = self.source / file
        original = path.read_text()
        lines = original.splitlines()
        lines[number] = text
        path.write_text("\n".join(lines) + "\n")
        try:
            yield
        finally:
            path.write_text(original)

    def outcome(self, fault):
        folder = os.path.dirname(fault.file)
        equal = True
        with self.changed(fault.file, fault.line, fault.text):
            for key in sorted(self.seconds, key=lambda k: (-self.kills[fault.file, k], -self.kills[folder, k])):
                digest = self.digest(*key)
                if digest is None:
                    return "does not compile"
                if digest == self.originals[key]:
                    continue
                equal = False
                if not self.passes(*key):
                    self.kills.update([(fault.file, key), (folder, key)])
                    return "killed by {} ({})".format(*key)
        if not equal:
            return "survived"
        trap = trapped((self.source / fault.file).read_text().splitlines(), fault.line)
        if trap is None:
            return "equal"
        with self.changed(fault.file, *trap):
            used = any(self.digest(*key) != digest for key, digest in self.originals.items())
        return "equal" if used else "not compiled in"


def main():
    count = int(sys.argv[1]) if len(sys.argv) > 1 else 150
    seed = int(sys.argv[2]) if len(sys.argv) > 2 else 1
    first = int(sys.argv[3]) if len(sys.argv) > 3 else 0
    faults = sample(first + count, seed)[first:]
    WORK.mkdir(parents=True, exist_ok=True)
    trees = queue.Queue()
    workers = os.cpu_count() or 1
    pool = concurrent.futures.ThreadPoolExecutor(workers)
    for number in range(workers):
        trees.put(Tree(number))

    def attempt(fault):
        tree = trees.get()
        try:
            return fault, tree.outcome(fault)
        finally:
            trees.put(tree)

    outcomes = collections.Counter()
    for fault, outcome in pool.map(attempt, faults):
        outcomes[outcome.split(" by ")[0]] += 1
        print(f"{outcome:44} {fault.file}:{fault.line + 1}: {fault.kind}", flush=True)
        if outcome == "survived":
            before = (ROOT / fault.file).read_text().splitlines()[fault.line]
            print("    -" + before + "\n    +" + fault.text, flush=True)
    tried = outcomes["killed"] + outcomes["equal"] + outcomes["survived"]
    print(f"{tried} faults (seed {seed}, from {first}): {outcomes['killed']} killed, {outcomes['equal']} equal in "
          f"effect, {outcomes['survived']} survived; {outcomes['does not compile']} did not compile, "
          f"{outcomes['not compiled in']} are in code that no test compiles in")
    sys.exit(1 if outcomes["survived"] else 0)


if __name__ == "__main__":
    main()
