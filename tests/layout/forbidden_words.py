#!/usr/bin/env python3
"""The tree speaks for itself: no pointer to outside documents, no machine's paths, nothing undone."""

import re

import layout

# The patterns are written in pieces, so that this file does not contain what it looks for.
RULES = [
    (r"\bspe" r"c(ification)?s?\b", "points at a document outside of the tree"),
    (r"\bas spe" r"cified\b", "points at a document outside of the tree"),
    (r"\bPa" r"rts? \d+(\.\d+)?\b", "points at a document outside of the tree"),
    (r"\bleft to the imple" r"menter\b", "points at a document outside of the tree"),
    (r"\biss" r"ue #?\d+\b", "points at a tracker; say the reason itself"),
    (r"(^|[^\w.])/(wo" r"rk|fa" r"rm)(/|\b)", "a path of one machine"),
    (r"\b(?-i:TO" r"DO|FIX" r"ME|XX" r"X|HA" r"CK)\b(?![-+]\d)", "something left undone"),
    (r"\b(unimple" r"mented|not imple" r"mented|place" r"holder)\b", "something left undone"),
    (r"\bDISA" r"BLED_\w+", "a test that does not run"),
    (r"GTEST_SK" r"IP\(\)\s*;", "a skipped test without its reason"),
]
COMPILED = [(re.compile(pattern, re.IGNORECASE), reason) for pattern, reason in RULES]


def check(root, _arguments):
    complaints = []
    for path in layout.files(root):
        lines = [("", path)] + list(enumerate(layout.read(root, path).splitlines(), 1))
        for number, line in lines:
            for pattern, reason in COMPILED:
                match = pattern.search(line)
                if match:
                    complaints.append(f"{path}:{number}: '{match.group().strip()}': {reason}")
    return complaints


GOOD = [
    {"a.cpp": "struct timespec ts;\nstd::filesystem::path parts;  // special, partly\n"},
    {"b/worker.md": "networks/work/x and ./work/a, parts of it; an issue was met\n"},
    {"d.cpp": 'setenv("TZ", "XX' 'X-05:30", 1);\n'},
    {"c.cpp": 'GTEST_SK' 'IP() << "needs root";\n'},
]
BAD = [
    ({"a.h": "// see the spe" "c\n"}, "points at a document"),
    ({"a.h": "// Pa" "rt 3.1 wants it\n"}, "points at a document"),
    ({"a.h": "// as Spe" "cified\n"}, "points at a document"),
    ({"a.md": "closes iss" "ue 12\n"}, "points at a tracker"),
    ({"a.py": 'open("/wo' 'rk/x")\n'}, "a path of one machine"),
    ({"a.cpp": "// TO" "DO: later\n"}, "left undone"),
    ({"a.cpp": "TEST(A, DISA" "BLED_B) {}\n"}, "does not run"),
    ({"a.cpp": "    GTEST_SK" "IP();\n"}, "without its reason"),
    ({"docs/spe" "c.md": ""}, "points at a document"),
]

if __name__ == "__main__":
    layout.run(__doc__, check, GOOD, BAD)
