#!/usr/bin/env python3
"""Every C++ file has the form that .clang-format gives it; scripts/format brings it there."""

import pathlib
import shutil
import subprocess

import layout

STYLE = pathlib.Path(__file__).resolve().parents[2] / ".clang-format"


def check(root, arguments):
    paths = layout.files(root, layout.CPP)
    if not paths:
        return ["no C++ file found"]
    if not pathlib.Path(root, STYLE.name).exists():
        shutil.copy(STYLE, root)
    done = subprocess.run([arguments.clang_format, "--style=file", "--dry-run", "-Werror", *paths],
                          cwd=root, text=True, capture_output=True)
    return [] if done.returncode == 0 else done.stderr.rstrip().splitlines()


def add_arguments(parser):
    parser.add_argument("--clang-format", default="clang-format")


GOOD = [{"a.cpp": "int F(int nA) {\n    return nA;\n}\n"}]
BAD = [
    ({"a.cpp": "int F( int nA ) {\n    return nA;\n}\n"}, "a.cpp:1"),
    ({"deep/a.h": "struct A {\n  int nA;\n};\n"}, "deep/a.h:1"),
    ({"readme.md": ""}, "no C++ file"),
]

if __name__ == "__main__":
    layout.run(__doc__, check, GOOD, BAD, add_arguments)
