#!/usr/bin/env python3
"""No class of the host has more public calls than a reader keeps in mind, and the session few includes."""

import re

import layout

MOST_CALLS = 15
# file without suffix -> includes of ours that header and source may have, their own header apart
MOST_INCLUDES = {"host/run/RunSession": 12}

HEAD = re.compile(r"\b(class|struct)\s+(\w+)[^;{()]*\{")
ACCESS = re.compile(r"\b(public|protected|private)\s*:\s*$")
CALL = re.compile(r"(~?\w+|operator\S+)\s*\($")


def calls(text, start, access, name):
    """How many functions the class whose body begins at start declares publicly, overloads each.

    Constructors, destructors and the interface's reserved slots are none.
    """
    count, depth, round_depth, statement, i = 0, 1, 0, "", start
    while i < len(text) and depth > 0:
        char = text[i]
        i += 1
        if char == "{":
            depth += 1
        elif char == "}":
            depth -= 1
            statement = "" if depth == 1 else statement
        elif depth == 1:
            statement += char
            round_depth += (char == "(") - (char == ")")
            heading = ACCESS.search(statement)
            if heading:
                access, statement = heading.group(1), ""
            elif char == "(" and round_depth == 1 and access == "public":
                called = CALL.search(statement)
                plain = "=" not in statement and "using " not in statement and ") :" not in statement
                word = called.group(1).lstrip("~") if called else name
                count += 1 if plain and word != name and not word.startswith("Reserved") else 0
            elif char == ";" and round_depth == 0:
                statement = ""
    return count


def check(root, _arguments):
    complaints = []
    for path in layout.files(root, (".h",), "host"):
        text = layout.code_only(layout.read(root, path))
        for head in HEAD.finditer(text):
            number = calls(text, head.end(), "public" if head.group(1) == "struct" else "private",
                           head.group(2))
            if number > MOST_CALLS:
                complaints.append(f"{path}: {head.group(2)} has {number} public calls, {MOST_CALLS} at most")
    for name, most in MOST_INCLUDES.items():
        found = set()
        for suffix in (".h", ".cpp"):
            if (layout.pathlib.Path(root) / (name + suffix)).is_file():
                found |= set(re.findall(r'#include "([^"]+)"', layout.read(root, name + suffix)))
        found.discard(name + ".h")
        if len(found) > most:
            complaints.append(f"{name}: {len(found)} includes of ours, {most} at most")
    return complaints


def a_class(number):
    return "class A {\npublic:\n" + "".join(f"    void F{n}(int n = 0);\n" for n in range(number)) + \
        "private:\n    void Hidden();\n};\n"


GOOD = [
    {"host/a.h": a_class(15)},
    {"host/a.h": a_class(14).replace("public:", "public:\n    ~A() { F1(); F2(); }\n    A() : m_n(f(1)) {}")},
    {"host/run/RunSession.h": '#include "host/run/RunSession.h"\n' + "".join(
        f'#include "host/{n}.h"\n' for n in range(12))},
]
BAD = [
    ({"host/a.h": a_class(16)}, "A has 16 public calls"),
    ({"host/a.h": a_class(16).replace("class A {\npublic:", "struct A {")}, "A has 16 public calls"),
    ({"host/run/RunSession.cpp": "".join(f'#include "host/{n}.h"\n' for n in range(13))},
     "13 includes of ours"),
]

if __name__ == "__main__":
    layout.run(__doc__, check, GOOD, BAD)
