#!/usr/bin/env python3
"""Comments, docs and what scripts print use the words of docs/glossary.md: the idiom that they replaced is bounded."""

import io
import re
import tokenize

import layout

# What was written before the glossary.
IDIOM = re.compile(
    r"\b(told|tells?|untold|heard|hear|unresolvable|sensed|silent)\b|\blooked at\b|\bin the making\b"
    r"|\bof no interest\b|\bbegun with\b|\bbegan with\b|\bhand(ed|s)? (it |them )?over\b|\bhanded out\b"
    r"|\bgone with a notice\b|\bwithout a sign\b|\bblock(ed)? lists?\b|\ballow lists?\b|\bblocked program"
    r"|\bopen questions?\b|\bmodule's questions?\b|\bno question\b"
    r"|\bwhat it says\b|\bof these beside\b", re.IGNORECASE)
MOST = 25  # of 417 that there were
COMMENT = {".h": r"//(.*)", ".cpp": r"//(.*)", ".c": r"(?://|/\*|^ \*)(.*)", ".sh": r"#(.*)"}
DOCS = (".md",)
# Tokens of Python that are read as sentences; Python 3.12 divides an f-string into several.
PYTHON = {tokenize.COMMENT, tokenize.STRING, getattr(tokenize, "FSTRING_MIDDLE", None)}
FORMATTED = re.compile(r"[a-z]*f[a-z]*['\"]", re.IGNORECASE)
ITSELF = "tests/layout/plain_words.py"  # which has to spell the idiom
PLACES = ("host", "tevmon", "framework", "public", "utils", "tests", "docs", "bench", "fuzz", "scripts")


def python_lines(text):
    """(line number, sentence) for each line of a comment, a docstring or a string without its {fields}."""
    for token in tokenize.generate_tokens(io.StringIO(text).readline):
        if token.type in PYTHON:
            words = re.sub(r"\{[^{}]*\}", "{}", token.string) if FORMATTED.match(token.string) else token.string
            yield from enumerate(words.splitlines(), token.start[0])


def lines(path, text):
    """(line number, sentence) for each line that is no code."""
    suffix = "." + path.rsplit(".", 1)[-1]
    if suffix in DOCS:
        yield from enumerate(text.splitlines(), 1)
    elif suffix == ".py":
        yield from python_lines(text)
    elif suffix in COMMENT:
        for number, line in enumerate(text.splitlines(), 1):
            comment = re.search(COMMENT[suffix], line)
            if comment:
                yield number, comment.group(1)


def found(root):
    """(path, line number, the words) for each use, one for each line."""
    for path in layout.files(root):
        if not path.startswith(PLACES) and "/" in path or path.startswith("tests/data/") or path == ITSELF:
            continue
        uses = {}
        for number, line in lines(path, layout.read(root, path)):
            match = IDIOM.search(line)
            if match:
                uses.setdefault(number, match.group())
        for number, words in uses.items():
            yield path, number, words


def check(root, _arguments):
    uses = list(found(root))
    print(f"{len(uses)} lines, {MOST} at most")
    if len(uses) <= MOST:
        return []
    return [f"{path}:{number}: '{words}'; see docs/glossary.md" for path, number, words in uses]


MANY = "// it is told\n" * (MOST + 1)
CODE = "told = heard.tell\nprint(f'{told:<4} {heard}')\n"
GOOD = [{"host/a.h": "// it is told\n" * MOST}, {"host/a.h": 'const char* p = "told";\n' * 100},
        {"tests/a.py": CODE * 100}, {ITSELF: MANY.replace("//", "#")}]
BAD = [({"host/a.h": MANY}, "'told'"), ({"docs/a.md": "sensed\n" * (MOST + 1)}, "'sensed'"),
       ({"tests/a.py": "# in the making\n" * (MOST + 1)}, "'in the making'"),
       ({"tests/a.py": '"""A line.\n' + "It is heard\n" * (MOST + 1) + '"""\n'}, f"a.py:{MOST + 2}: 'heard'"),
       ({"tests/a.py": "print(f'{count} told')\n" * (MOST + 1)}, "'told'"),
       ({"scripts/a.py": "print('of these beside')\n" * (MOST + 1)}, "'of these beside'")]

if __name__ == "__main__":
    layout.run(__doc__, check, GOOD, BAD)
