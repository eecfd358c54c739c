#!/usr/bin/env python3
"""docs/performance.md has every row that scripts/bench --list names, and of no other."""

import re
import subprocess

import layout

PAGE = "docs/performance.md"
ROWS = "bench/rows.txt"
# A row of the printed table: name, two figures with their units, two ratios.
ROW = re.compile(r"^(\S.*?) +[\d.]+ (?:us|ms|KiB) +[\d.]+ (?:us|ms|KiB) +\d+\.\d{3} +\d+\.\d{3}")


def check(root, _arguments):
    listed = subprocess.run(["bash", f"{root}/scripts/bench", "--list"], check=True, text=True,
                            capture_output=True, timeout=60).stdout.splitlines()
    shown = [match.group(1) for line in layout.read(root, PAGE).splitlines() if (match := ROW.match(line))]
    complaints = [f"{PAGE}: has no row '{name}'" for name in listed if name not in shown]
    complaints += [f"{PAGE}: has a row '{name}' that {ROWS} does not" for name in shown if name not in listed]
    complaints += [f"{PAGE}: has the row '{name}' twice" for name in sorted(set(shown)) if shown.count(name) > 1]
    return complaints + ([] if listed else [f"{ROWS}: is empty"])


def tree(listed, shown):
    rows = "".join(f"{name}          1.00 us      2.00 ms   0.500   0.501   1.05 met\n" for name in shown)
    return {ROWS: "".join(f"X\t{name}\n" for name in listed), PAGE: f"# Table\n\n```\n{rows}```\n",
            "scripts/bench": f'cd "$(dirname "$0")/.."; cut -f2 {ROWS}\n'}


GOOD = [tree(["push 5 KB : bare", "scan"], ["scan", "push 5 KB : bare"])]
BAD = [
    (tree(["push", "scan"], ["push"]), "has no row 'scan'"),
    (tree(["push"], ["push", "scan"]), "has a row 'scan' that"),
    (tree(["push"], ["push", "push"]), "twice"),
    (tree([], []), "is empty"),
]

if __name__ == "__main__":
    layout.run(__doc__, check, GOOD, BAD)
