#!/usr/bin/env python3
"""A line of scripts/prove holds only when its program ran, did something and reached its figures."""

import json
import pathlib
import subprocess
import sys
import tempfile

# What the program prints and answers, and what its line then says.
CASES = [
    ("echo 'lock: 1000 calls, longest_ms 0.3'", "holds", 0),
    ("echo 'lock: 1000 calls, longest_ms 5.1'", "MISSED", 1),
    ("echo 'lock: 1000 calls'", "MISSED", 1),
    ("echo 'lock: 1000 calls, longest_ms 0.3'; exit 1", "FAILS", 1),
    ("echo 'lock: 0 calls, longest_ms 0.3'", "FAILS", 1),
    ("true", "FAILS", 1),
    ("kill -9 $$", "FAILS", 1),
    ("echo '[  SKIPPED ] no rights'", "skipped", 0),
    ("echo '[  SKIPPED ] no rights'; exit 1", "FAILS", 1),
]


def outcome(root, program):
    with tempfile.TemporaryDirectory(prefix="tevmon-prove-") as folder:
        stress = pathlib.Path(folder, "stress")
        stress.write_text(f"#!/bin/sh\n{program}\n", encoding="utf-8")
        stress.chmod(0o755)
        done = subprocess.run([sys.executable, "-B", f"{root}/scripts/lib/prove.py", "--json", folder, "lock"],
                              capture_output=True, text=True, timeout=60, check=False)
    return json.loads(done.stdout)["result"], done.returncode


def main():
    complaints = []
    for program, result, code in CASES:
        got = outcome(sys.argv[1], program)
        if got != (result, code):
            complaints.append(f"{program}: {got} for {(result, code)}")
    print("\n".join(complaints))
    return 1 if complaints else 0


sys.exit(main())
