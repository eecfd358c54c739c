#!/usr/bin/env python3
"""Runs the hashing callers over every kind of path under strace and asserts what was opened.

Usage: path_kinds.py PROGRAM

No FIFO, device, socket or directory that a message named may be opened, except with O_PATH, which
only names it. Exit code 0: so it was; 1: not; 77: no strace here, or it may not trace.
"""

import re
import shutil
import subprocess
import sys
import tempfile

FILTER = "--gtest_filter=HostileTest.EveryKindOfPath*"
OPEN = re.compile(r"\bopen(?:at2?)?\((?P<arguments>.*)\)\s+= \d+<(?P<file>[^>]*)>")
# What a path of the test leads to that is no regular file.
FORBIDDEN = re.compile(r"/kinds(/(fifo|socket|loop|link.*|dangling))?$|^/dev/(zero|random|tty)|/task$")


def forbidden_opens(trace):
    bad, seen = [], 0
    for line in trace.splitlines():
        match = OPEN.search(line)
        if not match or "O_PATH" in match["arguments"]:
            continue
        seen += 1
        # The test makes its folder and removes it by walking it.
        if FORBIDDEN.search(match["file"]) and "O_DIRECTORY" not in match["arguments"]:
            bad.append(line)
    return bad, seen


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    assert forbidden_opens('openat(AT_FDCWD, "/proc/self/fd/5", O_RDONLY) = 6</tmp/a/kinds/fifo>\n')[0]
    assert not forbidden_opens('openat(AT_FDCWD, "/tmp/a/kinds/fifo", O_PATH) = 6</tmp/a/kinds/fifo>\n')[0]
    if not shutil.which("strace"):
        print("no strace here")
        sys.exit(77)
    with tempfile.NamedTemporaryFile(prefix="tevmon-trace-") as trace:
        done = subprocess.run(["strace", "-f", "-y", "-o", trace.name, "-e", "trace=open,openat,openat2",
                               sys.argv[1], FILTER], capture_output=True, text=True, check=False)
        text = trace.read().decode(errors="replace")
    if "Operation not permitted" in done.stderr and not text:
        print("strace may not trace here")
        sys.exit(77)
    bad, seen = forbidden_opens(text)
    program = sum("/program>" in line for line in text.splitlines())
    print(f"{seen} opens, {program} of the program, {len(bad)} of what is no regular file")
    print("\n".join(bad))
    if done.returncode != 0:
        print(done.stdout)
    sys.exit(1 if bad or done.returncode != 0 or program == 0 else 0)


if __name__ == "__main__":
    main()
