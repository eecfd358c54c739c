#!/usr/bin/env python3
"""The scripts answer --help from any folder without input, refuse wrong use, and name what is missing."""

import os
import pathlib
import subprocess
import tempfile

import layout

SCRIPTS = ("build", "run", "test", "bench", "format", "fuzz", "prove", "lib/bootstrap.sh", "lib/demo.sh")
# What bootstrap.sh needs to get as far as its refusal.
TOOLS = ("bash", "cat", "dirname", "env", "grep", "mkdir")


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
]

if __name__ == "__main__":
    layout.run(__doc__, check, [], BAD)
