#!/usr/bin/env python3
"""Comments and docs use the words of docs/glossary.md: the idiom that they replaced is counted and bounded."""

import re

import layout

# What was written before the glossary, in comments and docs.
IDIOM = re.compile(
    r"\b(told|tells?|untold|heard|hear|unresolvable|sensed|silent)\b|\blooked at\b|\bin the making\b"
    r"|\bof no interest\b|\bbegun with\b|\bbegan with\b|\bhand(ed|s)? (it |them )?over\b|\bhanded out\b"
    r"|\bgone with a notice\b|\bwithout a sign\b|\bblock(ed)? lists?\b|\ballow lists?\b|\bblocked program"
    r"|\bopen questions?\b|\bmodule's questions?\b|\bno question\b", re.IGNORECASE)
MOST = 34  # a tenth of what there was
COMMENT = {".h": r"//(.*)", ".cpp": r"//(.*)", ".c": r"(?://|/\*|^ \*)(.*)", ".py": r"#(.*)", ".sh": r"#(.*)"}
DOCS = (".md",)
PLACES = ("host", "tevmon", "framework", "public", "utils", "tests", "docs", "bench", "fuzz", "scripts")


def found(root):
    """(path, line number, the words) for each use, one for each line."""
    for path in layout.files(root):
        if not path.startswith(PLACES) and "/" in path or path.startswith("tests/data/"):
            continue
        suffix = "." + path.rsplit(".", 1)[-1]
        if suffix not in COMMENT and suffix not in DOCS:
            continue
        for number, line in enumerate(layout.read(root, path).splitlines(), 1):
            if suffix in COMMENT:
                comment = re.search(COMMENT[suffix], line)
                line = comment.group(1) if comment else ""
            match = IDIOM.search(line)
            if match:
                yield path, number, match.group()


def check(root, _arguments):
    uses = list(found(root))
    print(f"{len(uses)} lines, {MOST} at most")
    if len(uses) <= MOST:
        return []
    return [f"{path}:{number}: '{words}'; see docs/glossary.md" for path, number, words in uses]


MANY = "// it is told\n" * (MOST + 1)
GOOD = [{"host/a.h": "// it is told\n" * MOST}, {"host/a.h": 'const char* p = "told";\n' * 100}]
BAD = [({"host/a.h": MANY}, "'told'"), ({"docs/a.md": "sensed\n" * (MOST + 1)}, "'sensed'"),
       ({"tests/a.py": "# in the making\n" * (MOST + 1)}, "'in the making'")]

if __name__ == "__main__":
    layout.run(__doc__, check, GOOD, BAD)
