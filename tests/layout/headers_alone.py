#!/usr/bin/env python3
"""Every header compiles alone: it includes what it uses, and is guarded against a second time."""

import pathlib
import re
import subprocess

import goodstate
import layout

INCLUDE = re.compile(r"^\s*#\s*include\s*(\S+)", re.MULTILINE)
GUARD = re.compile(r"\s*#ifndef (\w+)\n#define \1\n(.*)\n#endif\s*\Z", re.DOTALL)


def is_compiled_first(root, header):
    """True for the header of a source: the source includes it before all else, so that the build has
    compiled it alone; against a second time it is guarded as a whole."""
    source = pathlib.Path(root, header).with_suffix(".cpp")
    if not source.is_file():
        return False
    first = INCLUDE.search(layout.without_comments(source.read_text(encoding="utf-8")))
    guarded = GUARD.match(layout.without_comments(layout.read(root, header)))
    return (first is not None and first[1] == f'"{header}"' and guarded is not None
            and closes_what_it_opens(guarded[2]))


def closes_what_it_opens(text):
    """True when no #endif of the text ends a condition from before it."""
    depth = 0
    for word in re.findall(r"(?m)^[ \t]*#[ \t]*(if|ifdef|ifndef|endif)\b", text):
        depth += -1 if word == "endif" else 1
        if depth < 0:
            return False
    return depth == 0


def compile_headers(root, headers, arguments):
    """What the compiler says about files that include one header each, twice."""
    command = [arguments.compiler, "-std=c++17", "-fsyntax-only", "-Wall", "-Wextra", "-Werror",
               "-I", str(root), *(f"-isystem{folder}" for folder in arguments.include)]
    version = subprocess.run([arguments.compiler, "--version"], text=True, capture_output=True).stdout
    good = goodstate.GoodState(root, arguments.state, version, *command)
    complaints = []
    for header in headers:
        name = good.name(header)
        if is_compiled_first(root, header) or good.knows(name):
            continue
        done = subprocess.run(
            [*command, "-x", "c++", "-"],
            input=f'#include "{header}"\n#include "{header}"\n', text=True, capture_output=True)
        if done.returncode != 0:
            complaints.append(f"{header}:\n{done.stderr.rstrip()}")
        else:
            good.store(name)
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
    parser.add_argument("--state", help="folder that keeps what was found good")


GUARDED = "#ifndef A_H\n#define A_H\n{}\n#endif\n"
GOOD = [
    {"a.h": GUARDED.format("struct A {};"), "a.cpp": '// A.\n#include "a.h"\n#include <string>\n'},
    {"a.h": GUARDED.format("#include <string>\nstruct A { std::string strA; };")},
]
BAD = [
    ({"a.h": GUARDED.format("struct A { std::string strA; };")}, "a.h:"),
    ({"a.h": "struct A {};\n"}, "redefinition"),
    # Not the first that its source includes, or not guarded as a whole: compiled like any other.
    ({"a.h": GUARDED.format("struct A { std::string strA; };"),
      "a.cpp": '#include <string>\n#include "a.h"\n'}, "a.h:"),
    ({"a.h": "#ifndef A_H\n#define A_H\n\n#endif\nstruct A {};\n#if 1\n\n#endif\n",
      "a.cpp": '#include "a.h"\n'}, "redefinition"),
    ({"a.h": "struct A {};\n#ifndef A_H\n#define A_H\n\n#endif\n", "a.cpp": '#include "a.h"\n'},
     "redefinition"),
    ({"b/a.h": GUARDED.format('#include "gone.h"')}, "b/a.h:"),
]

if __name__ == "__main__":
    layout.run(__doc__, check, GOOD, BAD, add_arguments)
