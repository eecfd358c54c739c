#!/usr/bin/env python3
"""Checks docs/edge-cases.md: every test it names stands in tests/, and no section lost a line;
and docs/relied-on.md: every row names a source that is there and the tests that hold it.

Usage: scripts/edge-cases [--json]

Exit code 0: all are there; 1: not, said on standard error; 2: wrong use.
"""

import json
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent

# Lines that each section must have at least.
SECTIONS = {
    "Entry points and plug-in object": 7,
    "Task timer": 4,
    "Receiver and dispatch": 6,
    "Behaviour event handler": 5,
    "Cloud result handler": 5,
    "Sending to the host": 7,
    "Event log": 4,
    "Message store": 8,
    "Message channel": 6,
    "Launch analysis": 12,
    "Path masking": 7,
    "Scripts and time texts": 6,
    "Autostart locations": 6,
    "File operations": 9,
    "File handlers": 9,
    "Named pipes": 7,
    "Autostart additions": 6,
    "Cloud query": 5,
    "Verdict store": 4,
    "Verdict cache": 6,
}
TEST = re.compile(r"\bTEST(?:_F|_P)?\(\s*(\w+),\s*(\w+)\)")


def tests_in_tree():
    return {f"{suite}.{name}" for file in (ROOT / "tests").rglob("*.cpp")
            for suite, name in TEST.findall(file.read_text(errors="replace"))}


def rows():
    section = None
    for line in (ROOT / "docs/edge-cases.md").read_text().splitlines():
        if line.startswith("## "):
            section = line[3:]
        elif section and line.startswith("|") and not line.startswith(("|--", "| what happens")):
            behaviour, test = (cell.strip() for cell in line.strip("|").rsplit("|", 1))
            yield section, behaviour, test


def oddities():
    for line in (ROOT / "docs/relied-on.md").read_text().splitlines():
        if line.startswith("|") and not line.startswith(("|--", "| oddity")):
            oddity, source, tests = (cell.strip() for cell in line.strip("|").rsplit("|", 2))
            yield oddity, source.strip("`"), [test.strip() for test in tests.split(",")]


def oddity_problems(found, known):
    for oddity, source, tests in found:
        if source != "everywhere" and not (ROOT / source).is_file():
            yield f"relied on: no file {source} ({oddity})"
        for test in tests:
            if test not in known:
                yield f"relied on: no test {test!r} ({oddity})"


def main():
    arguments = sys.argv[1:]
    if arguments in (["-h"], ["--help"]):
        print(__doc__)
        return 0
    if arguments not in ([], ["--json"]):
        print("scripts/edge-cases: unknown argument; see --help", file=sys.stderr)
        return 2
    known = tests_in_tree()
    found = list(rows())
    problems = [f"{section}: no test {test} ({behaviour})" for section, behaviour, test in found
                if test not in known]
    for section, least in SECTIONS.items():
        count = sum(1 for row in found if row[0] == section)
        if count < least:
            problems.append(f"{section}: {count} lines, at least {least} belong there")
    relied_on = list(oddities())
    problems.extend(oddity_problems(relied_on, known))
    for problem in problems:
        print(problem, file=sys.stderr)
    result = {"lines": len(found), "tests": len({row[2] for row in found}),
              "oddities": len(relied_on), "problems": len(problems)}
    if arguments:
        print(json.dumps(result))
    else:
        print("{lines} edge cases, {tests} tests, {oddities} oddities, {problems} problems".format(**result))
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
