#!/usr/bin/env python3
"""Keeps the C++ in the documentation true.

blocks.py generate <page> <out.cpp>   writes a program that runs the page's ```cpp blocks in turn
blocks.py check <page> <program>...   runs it and holds what it prints against the page

A block is a whole program, or statements that stand in a `main` below the page's last block of
nothing but includes and using-declarations. What it prints is said by the comments behind its
output statements, or on a line of their own below one, or by the ```text block that follows it.
"""
import pathlib
import re
import subprocess
import sys

BLOCK = re.compile(r"^```cpp\n(.*?)^```\n(?:\s*^```text\n(.*?)^```\n)?", re.M | re.S)
MARK = "#### block"


def blocks(page):
    return [(m[1], m[2]) for m in BLOCK.finditer(pathlib.Path(page).read_text())]


def is_prelude(code):
    return all(re.match(r"#include|using |$", line) for line in code.splitlines())


def generate(page, out):
    includes, bodies, calls, prelude = ["#include <iostream>"], [], [], ""
    for i, (code, _) in enumerate(blocks(page)):
        lines = code.splitlines()
        includes += [line for line in lines if line.startswith("#include")]
        body = "\n".join(line for line in lines if not line.startswith("#include"))
        if is_prelude(code):
            prelude = body
            continue
        if "int main()" in body:
            body = body.replace("int main()", "void run()")
        else:
            body = f"{prelude}\nvoid run() {{\n{body}\n}}"
        bodies.append(f"namespace block_{i} {{\n{body}\n}}")
        calls.append(f'  std::cout << "{MARK}\\n";\n  block_{i}::run();')
    main = "int main() {\n" + "\n".join(calls) + "\n}\n"
    pathlib.Path(out).write_text("\n".join([*dict.fromkeys(includes), *bodies, main]))


def expected(code, text):
    if text is not None:
        return text.splitlines()
    lines, printed = [], False
    for line in code.splitlines():
        before, comment, after = line.partition("// ")
        if comment and (("std::cout" in before) or (printed and not before.strip())):
            lines.append(after)
        printed = "std::cout" in before and not comment
    return lines


def check(page, *program):
    output = subprocess.run(program, capture_output=True, text=True, check=True).stdout
    parts = output.split(MARK + "\n")[1:]
    programs = [b for b in blocks(page) if not is_prelude(b[0])]
    assert programs and len(parts) == len(programs), "blocks are missing"
    for (code, text), part in zip(programs, parts):
        want, got = expected(code, text), [line.rstrip() for line in part.splitlines()]
        if want != got:
            sys.exit(f"{page}: the block\n\n{code}\nprints\n  " + "\n  ".join(got) +
                     "\nwhere the page says\n  " + "\n  ".join(want))


if __name__ == "__main__":
    {"generate": generate, "check": check}[sys.argv[1]](*sys.argv[2:])
