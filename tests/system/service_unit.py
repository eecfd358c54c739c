#!/usr/bin/env python3
"""The service unit: its sandbox scores well, hides nothing from the host, and starts what exists.

Usage: service_unit.py UNIT HOST

Scored without a running manager by systemd-analyze. Exit code 0: good; 1: not, with the reasons;
2: wrong use; 77: this machine has no systemd-analyze that scores files.
"""

import re
import subprocess
import sys

MOST_EXPOSURE = 3.0
# They would hide programs that are to be hashed, or their processes.
HIDING = ("PrivateTmp", "PrivateDevices", "ProtectKernelModules", "ProcSubset", "ProtectProc",
          "PrivateUsers", "PrivateNetwork", "RootDirectory", "InaccessiblePaths", "TemporaryFileSystem")


def exposure(unit):
    try:
        result = subprocess.run(["systemd-analyze", "security", "--offline=true", "--no-pager", unit],
                                capture_output=True, text=True, timeout=60)
    except FileNotFoundError:
        return None, "this machine has no systemd-analyze"
    match = re.search(r"Overall exposure level .*: ([0-9.]+)", result.stdout)
    if not match:
        return None, "systemd-analyze scores no files here: " + (result.stderr or result.stdout).strip()
    return float(match.group(1)), ""


def settings(unit):
    pairs = []
    with open(unit, encoding="utf-8") as lines:
        for line in lines:
            match = re.match(r"([A-Za-z]+)=(.*)", line)
            if match:
                pairs.append(match.groups())
    return pairs


def check_settings(unit, host):
    complaints = []
    pairs = settings(unit)
    values = dict(pairs)
    for name, value in pairs:
        if name in HIDING and value not in ("no", "default"):
            complaints.append(f"{name}={value} hides programs or processes from the host")
    if values.get("ProtectHome") not in (None, "no", "read-only"):
        complaints.append("ProtectHome hides programs from the host")
    for name, value in (("Type", "notify"), ("NotifyAccess", "main"), ("NoNewPrivileges", "yes")):
        if values.get(name) != value:
            complaints.append(f"{name} is not {value}")
    command = values["ExecStart"].split()[1:]
    subcommand = next(word for word in command if not word.startswith(("-", "$")))
    usage = subprocess.run([host, subcommand, "--help"], capture_output=True, text=True, timeout=60)
    usage_all = subprocess.run([host, "--help"], capture_output=True, text=True, timeout=60)
    if usage.returncode != 0:
        complaints.append(f"the host has no command {subcommand}")
    for word in command:
        if word.startswith("-") and not re.search(rf"(^|[ ,]){re.escape(word)}\b",
                                                  usage.stdout + usage_all.stdout, re.MULTILINE):
            complaints.append(f"the host has no option {word}")
    return complaints


def main():
    if len(sys.argv) != 3:
        print(__doc__, file=sys.stderr)
        return 2
    unit, host = sys.argv[1:]
    complaints = check_settings(unit, host)
    score, reason = exposure(unit)
    if score is not None and score > MOST_EXPOSURE:
        complaints.append(f"exposure {score}, at most {MOST_EXPOSURE} is allowed")
    print("\n".join(complaints) or (f"skipped: {reason}" if score is None else f"exposure {score}"))
    if complaints:
        return 1
    return 77 if score is None else 0


if __name__ == "__main__":
    sys.exit(main())
