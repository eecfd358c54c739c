#!/usr/bin/env python3
"""Why tests were skipped: the number of tests for each distinct reason, the most frequent first.

Usage: scripts/lib/skips.py REPORT...

REPORT is a file that ctest --output-junit wrote. A test gives its reason in what it printed: behind
"skipped: ", or, a program of GoogleTest, below the line that ends in ": Skipped"; of any other the last
line stands for it.
"""

import collections
import sys
import xml.etree.ElementTree


def reason(printed):
    """What a skipped test printed, down to its reason."""
    lines = [line.strip() for line in printed.splitlines() if line.strip()]
    for number, line in enumerate(lines):
        if line.startswith("skipped: "):
            return line[len("skipped: "):]
        if line.endswith(": Skipped") and number + 1 < len(lines):
            return lines[number + 1]
    return lines[-1] if lines else "no reason given"


def main(reports):
    reasons = collections.Counter(
        reason(case.findtext("system-out") or "")
        for report in reports for case in xml.etree.ElementTree.parse(report).iter("testcase")
        if case.find("skipped") is not None)
    for text, number in sorted(reasons.items(), key=lambda item: (-item[1], item[0])):
        print(f"{number:6} {text}")


if __name__ == "__main__":
    if len(sys.argv) < 2 or sys.argv[1] in ("-h", "--help"):
        print(__doc__)
        sys.exit(0 if len(sys.argv) > 1 else 2)
    main(sys.argv[1:])
