#!/usr/bin/env python3
"""Every header compiles alone: it includes what it uses, and is guarded against a second time."""

import subprocess

import layout


def compile_headers(root, headers, arguments):
    """What the compiler says about files that include one header each, twice."""
    complaints = []
    for header in headers:
        done = subprocess.run(
            [arguments.compiler, "-std=c++17", "-fsyntax-only", "-Wall", "-Wextra", "-Werror",
             "-I", str(root), *(f"-isystem{folder}" for folder in arguments.include),
             "-x", "c++", "-"],
            input=f'#include "{header}"\n#include "{header}"\n', text=True, capture_output=True)
        if done.returncode != 0:
            complaints.append(f"{header}:\n{done.stderr.rstrip()}")
    return complaints


def check(root, arguments):
    headers = [path for folder in arguments.folders or [""]
               for path in layout.files(root, (".h", ".hpp"), folder)]
    return compile_headers(root, headers, arguments)


def add_arguments(parser):
    parser.add_argument("folders", nargs="*", help="folders whose headers are meant; none: all")
    parser.add_argument("--compiler", default="c++")
    parser.add_argument("--include", action="append", default=[], metavar="DIR",
                        help="where headers of other libraries stand")


GUARDED = "#ifndef A_H\n#define A_H\n{}\n#endif\n"
GOOD = [{"a.h": GUARDED.format("#include <string>\nstruct A { std::string strA; };")}]
BAD = [
    ({"a.h": GUARDED.format("struct A { std::string strA; };")}, "a.h:"),
    ({"a.h": "struct A {};\n"}, "redefinition"),
    ({"b/a.h": GUARDED.format('#include "gone.h"')}, "b/a.h:"),
]

if __name__ == "__main__":
    layout.run(__doc__, check, GOOD, BAD, add_arguments)
