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
OPEN = re.compile(r"\b(?:creat|open(?:at2?)?)\((?P<arguments>.*)\)\s+= (?:-1|\d+<(?P<file>.*?)(?:<char[^>]*>)?>$)")
NAMED = re.compile(r'"(?P<file>[^"]*)"')
# What a path of the test leads to that is no regular file. The test itself writes to /dev/null;
# SQLite asks /dev/urandom for a number.
FORBIDDEN = re.compile(r"/kinds(/(fifo|socket|loop|link.*|dangling))?$|^/dev/(?!urandom$|shm/)|/task$|^/usr$|^/$")
ALLOWED = re.compile(r"O_DIRECTORY|O_PATH|/dev/null.*O_WRONLY")


def forbidden_opens(trace):
    """What was opened, or tried: a socket cannot be, and a device may not be there."""
    bad, seen = [], 0
    for line in trace.splitlines():
        match = OPEN.search(line)
        if not match or ALLOWED.search(match["arguments"]):
            continue
        seen += 1
        named = NAMED.search(match["arguments"])
        if any(FORBIDDEN.search(file) for file in (match["file"], named and named["file"]) if file):
            bad.append(line)
    return bad, seen


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    assert forbidden_opens('openat(AT_FDCWD, "/proc/self/fd/5", O_RDONLY) = 6</tmp/a/kinds/fifo>\n')[0]
    assert forbidden_opens('openat(AT_FDCWD, "/tmp/a/kinds/socket", O_RDONLY) = -1 ENXIO (No such device)\n')[0]
    assert forbidden_opens('openat(AT_FDCWD, "/proc/self/fd/5", O_RDONLY) = 6</dev/zero<char 1:5>>\n')[0]
    assert not forbidden_opens('openat(AT_FDCWD, "/tmp/a/kinds/fifo", O_PATH) = 6</tmp/a/kinds/fifo>\n')[0]
    if not shutil.which("strace"):
        print("no strace here")
        sys.exit(77)
    with tempfile.NamedTemporaryFile(prefix="tevmon-trace-") as trace:
        done = subprocess.run(["strace", "-f", "-y", "-o", trace.name, "-e", "trace=creat,open,openat,openat2",
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
