"""Runs in GDB on the program of values.cpp: gdb -batch -nx -x check.py values.

Every value and number must be shown as the program prints it, and junk somehow.
"""
import pathlib
import tempfile

import gdb

HERE = pathlib.Path(__file__).resolve().parent


def shown(expression):
    return gdb.parse_and_eval(expression).format_string()


def check():
    gdb.execute(f"source {HERE / 'zelk-gdb.py'}")
    gdb.execute("set debuginfod enabled off")
    gdb.execute("break stop")
    with tempfile.NamedTemporaryFile("r") as output:
        gdb.execute(f"run >{output.name}")
        lines = output.read().splitlines()
    gdb.execute("up")
    seen = {"values": 0, "numbers": 0}
    for line in lines:
        array, text = line.split(" ", 1)
        if array in seen:
            expression = f"{array}[{seen[array]}]"
            seen[array] += 1
            assert shown(expression) == text, f"{expression}: {shown(expression)}, not {text}"
    assert seen["values"] > 100 and seen["numbers"] > 5, seen
    # Of a value whose printer raises something nothing is shown.
    junk = [shown(f"*(zelk::{what}*)&junk[{i}]") for i in range(int(text)) for what in
            ("IEEEFloat", "QNumber")]
    assert all(junk) and any("unreadable" in j for j in junk), junk


try:
    check()
except BaseException as e:  # GDB would print it and end well
    print(f"FAILED: {str(e)[:500]}")
    gdb.execute("kill")
    gdb.execute("quit 1")
gdb.execute("kill")
