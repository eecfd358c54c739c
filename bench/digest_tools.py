#!/usr/bin/env python3
"""Both digests of many files, and of one large file, beside the tools that people know.

Usage: digest_tools.py HASH_FILES [--json] [--list] [--rounds N] [--folder DIR] [--large MIB]

HASH_FILES is the program of bench/framework/digest/hash_files.cpp. Every command hashes the same files,
which are read once before, so that all of them come from memory. The commands run in rounds, in an
order that is shuffled for each. The ratio is that of the shortest processor times (user and system),
behind it the median of the rounds' ratios. Exit code 0: everything ran; 1: something failed.
"""

import argparse
import json
import os
import pathlib
import random
import shutil
import statistics
import subprocess
import sys
import tempfile

# The reference, its commands, and the ratio aimed at over a folder of programs.
TOOLS = (
    ("rhash", (["rhash", "--md5", "--sha1"],), 0.78),
    ("openssl twice", (["openssl", "md5"], ["openssl", "sha1"]), 0.73),
    ("md5sum, sha1sum", (["md5sum"], ["sha1sum"]), 0.55),
    ("hashdeep", (["hashdeep", "-c", "md5,sha1"],), 0.46),
)


def processor_seconds(commands, files):
    total = 0.0
    for command in commands:
        process = subprocess.Popen([*command, *files], stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        said = process.stderr.read()
        _, status, used = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
        if process.returncode != 0:
            sys.exit(f"digest_tools: {command[0]} failed: {said.decode(errors='replace').strip()[:300]}")
        total += used.ru_utime + used.ru_stime
    return total


def compare(name, files, ours, tools, rounds, with_targets):
    sides = {"ours": (ours,), **{tool: commands for tool, commands, _ in tools}}
    times = {side: [] for side in sides}
    for _ in range(rounds):
        for side in random.sample(list(sides), len(sides)):
            times[side].append(processor_seconds(sides[side], files))
    rows = []
    for tool, _, target in tools:
        best = min(times["ours"]) / min(times[tool])
        median = statistics.median(a / b for a, b in zip(times["ours"], times[tool]))
        rows.append({"case": f"{name} : {tool}", "subject_s": min(times["ours"]), "reference_s": min(times[tool]),
                     "ratio": best, "median": median, "target": target if with_targets else None})
    return rows


def programs(folder):
    paths = (pathlib.Path(folder, name) for name in sorted(os.listdir(folder)))
    return [str(path) for path in paths if path.is_file() and not path.is_symlink()
            and os.access(path, os.R_OK)]


def show(row, as_json):
    if as_json:
        print(json.dumps(row))
        return
    verdict = "" if row["target"] is None else "met" if row["ratio"] <= row["target"] else "MISSED"
    target = "" if row["target"] is None else f"{row['target']:.2f}"
    print(f"{row['case']:<62} {row['subject_s'] * 1e3:9.2f} ms {row['reference_s'] * 1e3:9.2f} ms "
          f"{row['ratio']:7.3f} {row['median']:7.3f} {target:>6} {verdict}")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("hash_files")
    parser.add_argument("--json", action="store_true")
    parser.add_argument("--list", action="store_true", help="print the names of the rows and stop")
    parser.add_argument("--rounds", type=int, default=7)
    parser.add_argument("--folder", default="/usr/bin")
    parser.add_argument("--large", type=int, default=500, metavar="MIB")
    args = parser.parse_args()
    names = f"both digests, {args.folder}", f"both digests, one file of {args.large} MiB"
    if args.list:
        print("\n".join(f"{name} : {tool}" for name in names for tool, _, _ in TOOLS))
        return 0
    tools = [row for row in TOOLS if all(shutil.which(command[0]) for command in row[1])]
    for row in TOOLS:
        if row not in tools:
            print(f"digest_tools: left out, not installed: {row[0]}", file=sys.stderr)
    files = programs(args.folder)
    print(f"digest_tools: {args.folder} has {len(files)} files", file=sys.stderr)
    ours = [args.hash_files]
    for row in compare(names[0], files, ours, tools, args.rounds, True):
        show(row, args.json)
    with tempfile.NamedTemporaryFile(prefix="tevmon-digest-") as large:
        large.write(random.Random(1).randbytes(1 << 20) * args.large)
        large.flush()
        for row in compare(names[1], [large.name], ours, tools, max(3, args.rounds // 2), False):
            show(row, args.json)
    return 0


if __name__ == "__main__":
    sys.exit(main())
