#!/usr/bin/env python3
"""The glossary is short and used, and what the host counts is named in the docs.

docs/glossary.md has MOST terms at most, and each of its terms is a word of the host's texts, comments
or names. Every member of the balance and every label value of the metrics stands in backquotes in
docs/host.md or docs/metrics.md.
"""

import re

import layout

GLOSSARY, DOCS = "docs/glossary.md", ("docs/host.md", "docs/metrics.md")
BALANCE, METRICS = "host/report/text/BalanceText.cpp", "host/report/metrics/MetricsText.cpp"
MOST = 25
ROW = re.compile(r"^\| ([^|]+) \| [^|]+ \|$", re.MULTILINE)
MEMBER = re.compile(r'\.Add(?:Json)?\(\s*"([a-z_]+)"')
LABELS = re.compile(r'\{\{((?:"[a-z_]+"(?:, )?)+)\},')


def terms(text):
    """The terms, without the heading and the rule below it."""
    return [term for row in ROW.findall(text) if row != "term" and set(row) != {"-"}
            for term in row.split(", ")]


def words(root):
    """All that the host's sources say, names taken apart into words, in lower case."""
    text = " ".join(layout.read(root, path) for path in layout.files(root, layout.CPP, "host"))
    apart = re.sub(r"(?<=[a-z])(?=[A-Z])|_", " ", text)
    return re.sub(r"[^a-z]+", " ", apart.lower())


def check(root, _arguments):
    found = terms(layout.read(root, GLOSSARY))
    complaints = [] if found else [f"{GLOSSARY}: no terms found"]
    if len(found) > MOST:
        complaints.append(f"{GLOSSARY}: {len(found)} terms, {MOST} at most")
    said = words(root)
    complaints += [f"{GLOSSARY}: '{term}' is no word of the host" for term in found
                   if not re.search(rf"\b{re.escape(term)}(s|es|ed)?\b", said)]
    documented = " ".join(re.findall(r"`([^`\n]+)`", " ".join(layout.read(root, path) for path in DOCS)))
    named = set(MEMBER.findall(layout.read(root, BALANCE)))
    for labels in LABELS.findall(layout.read(root, METRICS)):
        named.update(re.findall(r'"([a-z_]+)"', labels))
    complaints += [f"{BALANCE} or {METRICS}: '{name}' stands in none of {', '.join(DOCS)}"
                   for name in sorted(named) if not re.search(rf"(?<!\w){name}(?!\w)", documented)]
    return complaints


def tree(glossary="| term | meaning |\n|---|---|\n| lost, bad run | gone |\n", docs="`input` and `launch`\n",
         balance='record.Add("input", 1);\n', metrics='return {{{"launch"}, 1}};\n', host="int nLost, nBadRuns;\n"):
    return {GLOSSARY: glossary, DOCS[0]: docs, DOCS[1]: "", BALANCE: balance, METRICS: metrics,
            "host/a.h": host}


def rows(number):
    return "| term | meaning |\n|---|---|\n" + "| lost | gone |\n" * number


GOOD = [tree(), tree(glossary=rows(MOST)), tree(docs="`input`\n`kind=\"launch\"`\n")]
BAD = [
    (tree(glossary=rows(MOST + 1)), "26 terms, 25 at most"),
    (tree(glossary=""), "no terms found"),
    (tree(host="int nLost;\n"), "'bad run' is no word"),
    (tree(docs="input and `launch`\n"), "'input' stands in none"),
    (tree(docs="`input`\n"), "'launch' stands in none"),
    (tree(metrics='return {{{"launch", "own"}, 1}};\n'), "'own' stands in none"),
]

if __name__ == "__main__":
    layout.run(__doc__, check, GOOD, BAD)
