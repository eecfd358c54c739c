"""What the layout tests share: reading the tree, and running a check on itself.

A check is a function from the root of a tree to a list of complaints, one line each. Every script
hands it to run() together with small trees that it has to accept and to refuse, so that
--self-test shows that the check can fail.
"""

import argparse
import pathlib
import re
import sys
import tempfile

CPP = (".h", ".hpp", ".cpp", ".cc", ".c")
# Not part of the tree: what is built, what git keeps, what Python caches.
LEFT_OUT = {".git", "build", "__pycache__"}


def files(root, suffixes=None, under=""):
    """Paths below root/under, relative to root with "/" between, sorted; no suffixes means all."""
    found = []
    start = pathlib.Path(root, under)
    for path in start.rglob("*"):
        relative = path.relative_to(root)
        if LEFT_OUT.intersection(relative.parts) or not path.is_file() or path.is_symlink():
            continue
        if suffixes is None or path.suffix in suffixes:
            found.append(relative.as_posix())
    return sorted(found)


def read(root, path):
    return pathlib.Path(root, path).read_text(encoding="utf-8", errors="replace")


def write_tree(root, tree):
    for path, text in tree.items():
        target = pathlib.Path(root, path)
        target.parent.mkdir(parents=True, exist_ok=True)
        target.write_text(text, encoding="utf-8")


def without_comments(text):
    """The text without its line comments."""
    return re.sub(r"(?m)^[ \t]*//.*\n", "", text)


def code_only(text):
    """The text with comments and the insides of literals turned to blanks, line feeds kept."""
    out = []
    i, n = 0, len(text)

    def blank(end):
        nonlocal i
        out.append("".join(c if c == "\n" else " " for c in text[i:end]))
        i = end

    while i < n:
        two = text[i : i + 2]
        if two == "//":
            end = text.find("\n", i)
            blank(n if end < 0 else end)
        elif two == "/*":
            end = text.find("*/", i + 2)
            blank(n if end < 0 else end + 2)
        elif text[i] == '"' and i > 0 and text[i - 1] == "R":
            mark = text[i + 1 : text.find("(", i)]
            end = text.find(")" + mark + '"', i)
            blank(n if end < 0 else end + len(mark) + 2)
        elif text[i] == '"' or (text[i] == "'" and not (i > 0 and text[i - 1].isalnum())):
            end = i + 1
            while end < n and text[end] != text[i] and text[end] != "\n":
                end += 2 if text[end] == "\\" else 1
            out.append(text[i])
            i += 1
            blank(min(end, n))
            if i < n and text[i] != "\n":
                out.append(text[i])
                i += 1
        else:
            out.append(text[i])
            i += 1
    return "".join(out)


def run(description, check, good, bad, add_arguments=None):
    """The script's main: --root DIR runs the check, --self-test tries it on its own trees.

    good is a list of trees {path: text} that give no complaint; bad a list of (tree, text) where
    some complaint contains the text. check is called with the root and the parsed arguments.
    """
    parser = argparse.ArgumentParser(description=description)
    parser.add_argument("--root", default=pathlib.Path(__file__).resolve().parents[2],
                        help="root of the tree to check (default: the one this script stands in)")
    parser.add_argument("--self-test", action="store_true",
                        help="check small trees of its own, good and bad ones, instead")
    if add_arguments:
        add_arguments(parser)
    arguments = parser.parse_args()
    if arguments.self_test:
        complaints = self_test(check, good, bad, arguments)
    else:
        complaints = check(arguments.root, arguments)
    for complaint in complaints:
        print(complaint)
    print(f"{len(complaints)} complaints")
    sys.exit(1 if complaints else 0)


def self_test(check, good, bad, arguments):
    wrong = []
    for tree, expected in [(tree, None) for tree in good] + bad:
        with tempfile.TemporaryDirectory(prefix="tevmon-layout-") as root:
            write_tree(root, tree)
            complaints = check(root, arguments)
        if expected is None and complaints:
            wrong.append(f"refused {sorted(tree)}: {complaints}")
        if expected is not None and not any(expected in complaint for complaint in complaints):
            wrong.append(f"accepted {sorted(tree)}, no complaint says '{expected}': {complaints}")
    return wrong
