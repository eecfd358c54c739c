#!/usr/bin/env python3
"""No circle of includes: neither between files, a source counted with its header, nor between folders."""

import re

import layout

TOPS = ("framework", "utils", "public", "tevmon", "host")
INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"', re.MULTILINE)


def unit(path):
    return path.rpartition(".")[0]


def folder(path):
    return path.rpartition("/")[0]


def edges(root, name_of):
    """What each of the named things includes of the others."""
    found = {}
    for path in (path for top in TOPS for path in layout.files(root, layout.CPP, top)):
        included = {name_of(name) for name in INCLUDE.findall(layout.read(root, path))}
        found.setdefault(name_of(path), set()).update(included - {name_of(path)})
    return found


def circle(found):
    """The members of one circle, in order, or nothing."""
    done, road = set(), []

    def visit(name):
        if name in road:
            return road[road.index(name):] + [name]
        if name in done or name not in found:
            return []
        road.append(name)
        for other in sorted(found[name]):
            closed = visit(other)
            if closed:
                return closed
        road.pop()
        done.add(name)
        return []

    for start in sorted(found):
        closed = visit(start)
        if closed:
            return closed
    return []


def check(root, _arguments):
    circles = [(what, circle(edges(root, name_of))) for what, name_of in (("files", unit), ("folders", folder))]
    return [f"a circle of {what}: {' -> '.join(closed)}" for what, closed in circles if closed]


def using(*names):
    return "".join(f'#include "{name}"\n' for name in names)


GOOD = [
    {"host/run/A.h": "", "host/run/A.cpp": using("host/run/A.h", "host/base/B.h"), "host/base/B.h": ""},
    {"host/base/A.h": using("host/base/B.h", "host/base/C.h"), "host/base/B.h": using("host/base/C.h"),
     "host/base/C.h": ""},
    {"host/kernel/A.h": using("host/kernel/file/B.h"), "host/kernel/file/B.h": ""},
]
BAD = [
    ({"utils/A.h": using("utils/B.h"), "utils/B.h": using("utils/A.h")}, "files: utils/A -> utils/B -> utils/A"),
    ({"host/base/A.h": "", "host/base/A.cpp": using("host/base/B.h"), "host/base/B.h": using("host/base/A.h")},
     "a circle of files"),
    ({"host/base/A.h": using("host/run/B.h"), "host/run/B.h": "", "host/run/C.h": using("host/base/D.h"),
      "host/base/D.h": ""}, "folders: host/base -> host/run -> host/base"),
    ({"host/kernel/A.h": using("host/kernel/file/B.h"), "host/kernel/file/B.h": "",
      "host/kernel/file/C.h": using("host/kernel/D.h"), "host/kernel/D.h": ""}, "a circle of folders"),
]

if __name__ == "__main__":
    layout.run(__doc__, check, GOOD, BAD)
