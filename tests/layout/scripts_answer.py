#!/usr/bin/env python3
"""The scripts answer --help from any folder without input, refuse wrong use, name what is missing and
say why tests were skipped."""

import os
import pathlib
import subprocess
import sys
import tempfile

import layout

SCRIPTS = ("build", "run", "test", "bench", "format", "fuzz", "prove", "lib/bootstrap.sh", "lib/demo.sh")
# What bootstrap.sh needs to get as far as its refusal.
TOOLS = ("bash", "cat", "dirname", "env", "grep", "mkdir")


# A report of ctest's, and why its tests were skipped.
REPORT = """<testsuite>
<testcase name="a" status="run"><system-out>skipped: not so</system-out></testcase>
<testcase name="b"><skipped message="x"/><system-out>one\nskipped: wants &lt;root&gt;\n</system-out></testcase>
<testcase name="c"><skipped/><system-out>a_test.cpp:1: Skipped\nno AVX2\n\n[  SKIPPED ] A.B\n</system-out></testcase>
<testcase name="d"><skipped/><system-out>skipped: wants &lt;root&gt;</system-out></testcase>
<testcase name="e"><skipped/><system-out>no strace\n</system-out></testcase>
<testcase name="f"><skipped/></testcase>
</testsuite>
"""
REASONS = "     2 wants <root>\n     1 no AVX2\n     1 no reason given\n     1 no strace\n"


def call(script, *arguments, **options):
    with tempfile.TemporaryDirectory(prefix="tevmon-layout-") as elsewhere:
        return subprocess.run(["bash", str(script), *arguments], cwd=elsewhere, stdin=subprocess.DEVNULL, text=True,
                              capture_output=True, timeout=60, **options)


def bootstrap_without_rights(root):
    """bootstrap.sh where nothing is installed, for a user who is not root and has no sudo."""
    with tempfile.TemporaryDirectory(prefix="tevmon-layout-") as folder:
        for tool in TOOLS:
            found = next(pathlib.Path(d, tool) for d in ("/usr/bin", "/bin")
                         if pathlib.Path(d, tool).exists())
            os.symlink(found, pathlib.Path(folder, tool))
        for tool, text in (("id", "echo 1000"), ("dpkg-query", "exit 1")):
            path = pathlib.Path(folder, tool)
            path.write_text(f"#!/bin/bash\n{text}\n", encoding="utf-8")
            path.chmod(0o755)
        return call(pathlib.Path(root, "scripts/lib/bootstrap.sh"), "run", env={"PATH": folder})


def skips(root):
    """What skips.py makes of REPORT."""
    with tempfile.TemporaryDirectory(prefix="tevmon-layout-") as folder:
        report = pathlib.Path(folder, "report.xml")
        report.write_text(REPORT, encoding="utf-8")
        return subprocess.run([sys.executable, "-B", str(pathlib.Path(root, "scripts/lib/skips.py")), str(report)],
                              stdin=subprocess.DEVNULL, text=True, capture_output=True, timeout=60)


def check(root, _arguments):
    complaints = []
    for name in SCRIPTS:
        script = pathlib.Path(root, "scripts", name)
        if not os.access(script, os.X_OK):
            complaints.append(f"{name}: not executable")
        done = call(script, "--help")
        if done.returncode != 0 or not done.stdout.startswith("Usage: scripts/") or done.stderr:
            complaints.append(f"{name} --help: code {done.returncode}: {done.stdout}{done.stderr}")
        if name in ("build", "test", "bench", "fuzz", "prove", "lib/bootstrap.sh"):
            done = call(script, "no-such-name")
            if done.returncode != 2 or "no-such-name" not in done.stderr:
                complaints.append(f"{name} no-such-name: code {done.returncode}: {done.stderr}")

    reasons = skips(root)
    if reasons.returncode != 0 or reasons.stdout != REASONS:
        complaints.append(f"skips.py: code {reasons.returncode}: {reasons.stdout}{reasons.stderr}")
    bootstrap = pathlib.Path(root, "scripts/lib/bootstrap.sh")
    packages = call(bootstrap, "--list", "run").stdout.split()
    refused = bootstrap_without_rights(root)
    command = f"apt-get install -y --no-install-recommends {' '.join(packages)}\n"
    if refused.returncode != 1 or command not in refused.stderr or "g++" not in packages:
        complaints.append(f"bootstrap without rights: code {refused.returncode}: {refused.stderr}")
    return complaints


ANSWERS = {"scripts/build": "echo 'Usage: scripts/build'\n"}
BAD = [
    ({}, "build --help: code 127"),
    (ANSWERS, "build: not executable"),
    (ANSWERS, "build no-such-name: code 0"),
    (ANSWERS, "bootstrap without rights: code 127"),
    (ANSWERS, "skips.py: code 2"),
    ({"scripts/lib/skips.py": "print('1 no AVX2')\n"}, "skips.py: code 0: 1 no AVX2"),
]

if __name__ == "__main__":
    layout.run(__doc__, check, [], BAD)
