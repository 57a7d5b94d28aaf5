#!/usr/bin/env python3
"""Puts one small fault at a time into the sources of zelk/ and sees whether the tests notice.

usage: mutate.py [count] [seed]

Each fault is built and tested with the short roads and without, in copies of the tree under
build/mutate, one for each processor. A fault is killed when a test fails, hangs or does not end
normally; one that leaves the programs of both builds as they were is equal in effect, or lies in
what is not compiled into any of them: a trap in the same block changes nothing either. The others
survive and are listed; then the exit status is 1. What fails before there is a fault is printed, and
kept in build/mutate.
"""
import collections
import concurrent.futures
import contextlib
import hashlib
import os
import pathlib
import queue
import random
import re
import shutil
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
WORK = ROOT / "build" / "mutate"
BUILDS = {"short": [], "reference": ["-DZELK_REFERENCE_ONLY=ON"]}
TEST_SECONDS = 60

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
]
# Missing negations, and numbers that are one off.
PATTERNS = [
    (re.compile(r"(?<=[(\s])!(?=[a-z(])"), lambda m: ""),
    (re.compile(r"(?<=[(\s])[~-](?=[a-z(])"), lambda m: ""),
    (re.compile(r"(?<=[-+<>=&|*/(] )\d+\b(?![.\w])|(?<=[(,])\d+(?=[,)])"),
     lambda m: str(int(m.group()) + 1)),
]
# The opening of a block of statements, behind which another one can stand.
BLOCK = re.compile(r"(\)|\bconst|\bnoexcept|\boverride|\belse|\bdo|\btry) \{")
# A statement that can go: an assignment or a call, on a line of its own.
STATEMENT = re.compile(r"^\s+(?!return|throw|using|static|const|auto|case|break|continue|template|delete)"
                       r"[\w.>\[\]:-]+(\s*([-+*/|&^]|<<|>>)?=[^=]|\().*;$")

Fault = collections.namedtuple("Fault", "file line text kind")


def faults_of(path):
    """All faults that the lines of a file offer."""
    lines = path.read_text().splitlines()
    name = str(path.relative_to(ROOT))
    for number, line in enumerate(lines):
        code = line.split("//")[0].rstrip()
        if not code.strip() or code.lstrip().startswith(("#", "template", "static_assert", "operator")):
            continue
        if '"' in code or "friend" in code or "= delete" in code or "= default" in code:
            continue
        def fault(start, end, new, kind):
            return Fault(name, number, code[:start] + new + code[end:], kind)
        for old, news in SWAPS:
            for match in re.finditer(re.escape(old), code):
                for new in news:
                    yield fault(match.start(), match.end(), new, f"{old.strip()} to {new.strip()}")
        for pattern, replace in PATTERNS:
            for match in pattern.finditer(code):
                new = replace(match)
                yield fault(match.start(), match.end(), new, f"{match.group()} to {new or 'nothing'}")
        if STATEMENT.match(code) and code.count("(") == code.count(")"):
            yield Fault(name, number, re.match(r"\s*", code).group() + ";", "no statement")


def sample(count, seed):
    """Faults of every file, as many as its share of all."""
    chance = random.Random(seed)
    per_file = {}
    for path in sorted(ROOT.glob("zelk/*/*.*")):
        found = list(faults_of(path))
        if found:
            chance.shuffle(found)
            per_file[path] = found
    total = sum(map(len, per_file.values()))
    for found in per_file.values():
        yield from found[: max(2, round(count * len(found) / total))]


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

    def __init__(self, number):
        self.source = WORK / f"tree{number}"
        self.log = WORK / f"tree{number}.log"
        shutil.rmtree(self.source, ignore_errors=True)
        ignored = shutil.ignore_patterns("build", ".git", "docs")
        shutil.copytree(ROOT, self.source, ignore=ignored)
        for build, options in BUILDS.items():
            if not run(["cmake", "-S", self.source, "-B", self.folder(build), "-G", "Ninja",
                        "-DCMAKE_BUILD_TYPE=None", "-DCMAKE_CXX_FLAGS=-O1 -DNDEBUG", *options], self.log):
                self.give_up(f"cmake fails ({build})")
        listed = subprocess.run(["ctest", "--test-dir", self.folder("short"), "-N"],
                                capture_output=True, text=True, check=True).stdout
        # The tests that are programs of their own name. Those that have killed last come first.
        self.programs = re.findall(r"Test +#\d+: (fuzz_\w+|\w+_test|format)$", listed, re.M)
        self.originals = {}
        for key in ((program, build) for program in self.programs for build in BUILDS):
            self.originals[key] = self.digest(*key)
            if self.originals[key] is None or not self.passes(*key):
                self.give_up("{} fails without a fault ({})".format(*key))

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
        return run(["ctest", "--test-dir", self.folder(build), "-R", f"^{program}$",
                    "--output-on-failure", "--timeout", str(TEST_SECONDS)], self.log)

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
        equal = True
        with self.changed(fault.file, fault.line, fault.text):
            for program, build in ((p, b) for p in list(self.programs) for b in BUILDS):
                digest = self.digest(program, build)
                if digest is None:
                    return "does not compile"
                if digest == self.originals[program, build]:
                    continue
                equal = False
                if not self.passes(program, build):
                    self.programs.remove(program)
                    self.programs.insert(0, program)
                    return "killed by " + program
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
    faults = list(sample(count, seed))
    WORK.mkdir(parents=True, exist_ok=True)
    trees = queue.Queue()
    workers = os.cpu_count() or 1
    pool = concurrent.futures.ThreadPoolExecutor(workers)
    for tree in pool.map(Tree, range(workers)):
        trees.put(tree)

    def attempt(fault):
        tree = trees.get()
        try:
            return fault, tree.outcome(fault)
        finally:
            trees.put(tree)

    outcomes = collections.Counter()
    for fault, outcome in pool.map(attempt, faults):
        outcomes[outcome.split(" by ")[0]] += 1
        print(f"{outcome:28} {fault.file}:{fault.line + 1}: {fault.kind}", flush=True)
        if outcome == "survived":
            before = (ROOT / fault.file).read_text().splitlines()[fault.line]
            print("    -" + before + "\n    +" + fault.text, flush=True)
    tried = outcomes["killed"] + outcomes["equal"] + outcomes["survived"]
    print(f"{tried} faults (seed {seed}): {outcomes['killed']} killed, {outcomes['equal']} equal in "
          f"effect, {outcomes['survived']} survived; {outcomes['does not compile']} did not compile, "
          f"{outcomes['not compiled in']} are in code that no test compiles in")
    sys.exit(1 if outcomes["survived"] else 0)


if __name__ == "__main__":
    main()
