#!/usr/bin/env python3
"""What tevmon-host prints, compared byte by byte with what it printed before.

Usage: printed.py HOST DATA [--record]

HOST is the program, DATA the folder tests/data. Each case of CASES runs the program on files made
here, and what it wrote on standard output and standard error, with its exit code, is compared with
DATA/printed/CASE.txt. Times, durations, rates and the place of the files are replaced first, and the
lines of different threads are put in one order; the golden recordings name programs made here, so that
no machine's own take part. --record writes the files instead. Exit code 0: all alike; 1: a difference, shown.
"""

import argparse
import concurrent.futures
import difflib
import itertools
import os
import pathlib
import re
import subprocess
import sys
import tempfile

# What differs from run to run, and what stands in its place.
VARIABLE = [
    (r'\b\d\d:\d\d:\d\d\b', "HH:MM:SS"),
    (r'\b\d{4}-\d\d-\d\d HH:MM:SS\b', "YYYY-MM-DD HH:MM:SS"),
    (r'"(time|tmcreate)":\d+', r'"\1":0'),
    (r'"([a-z_]*seconds|[a-z_]*per_second)":[\d.]+', r'"\1":0'),
    (r'\b\d+(\.\d+)? (s|ms|seconds)\b', r'N \2'),
    (r'\(default: /[^)]*/tevmon\)', "(default: STATE)"),
    (r'"module":"[^"]*/libtevmon.so"', '"module":"libtevmon.so"'),
    (r'(per second) [\d.KMGTiB ]+', r'\1 N'),
    # The module met the host's look into its queue, and tries again.
    (r'^database is locked\n', ""),
    # Left out where the work was too short for a rate.
    (r' at [\d.]+ ([KMGT]i)?B/s', ""),
]


class Machine:
    """Programs, recordings and lists in a folder of their own."""

    def __init__(self, root, data):
        self.root = root
        programs = root / "bin"
        programs.mkdir()
        names = []

        def renamed(found):
            names.append(f"{found[2]}-{len(names) + 1:02}")
            return f'"{found[1]}":"{programs}/{names[-1]}"'

        for recording in ("launches", "fileops"):
            text = (data / f"{recording}.jsonl").read_text(encoding="utf-8")
            # Every start is one of another program: whether an answer is back in time for the next
            # start of the same one is chance.
            text = re.sub(r'"(path|exe_path)":"/usr/bin/([\w.+-]+)"', renamed, text)
            text = text.replace("@DIR@", str(root / "dir"))
            (root / f"{recording}.jsonl").write_text(text, encoding="utf-8")
        (root / "dir").mkdir()
        for name in ("a.sh", "a.py"):
            (root / "dir" / name).write_text(f"#!/bin/false\n{name}\n", encoding="utf-8")
        for name in [*names, "bad", "good"]:
            (programs / name).write_text(f"#!/bin/false\n{name}\n", encoding="utf-8")
            (programs / name).chmod(0o755)
        self.list("bad", ["bad", *(name for name in names if "sh-" in name)])
        self.list("good", ["good", *(name for name in names if "touch" in name)])
        (root / "broken.list").write_text("no digest\n", encoding="utf-8")
        (root / "broken.jsonl").write_text('{"param":\n\n[]\n{"param":[]}\n', encoding="utf-8")

    def list(self, name, programs):
        done = subprocess.run(["sha1sum", *programs], cwd=self.root / "bin", check=True, text=True,
                              capture_output=True)
        (self.root / f"{name}.list").write_text(done.stdout, encoding="utf-8")

    def of(self, word):
        return word.replace("@", f"{self.root}/")


LISTS = ["--no-packages", "--bad", "@bad.list", "--good", "@good.list"]
BAD_KEY = "d191335212c82f5055e72ecdeacc7f159b99207a3e133e9c51ab4124f24a12ccf84bf9e6"  # of bin/bad
STATE = ["--state-dir", "@state"]

# case -> command lines, one after the other on the same files; "@" is their folder.
CASES = {
    "help": [["--help"], ["--version"]] + [
        [*command.split(), "--help"] for command in (
            "replay", "scan", "watch", "doctor", "queue", "queue list", "queue count", "queue show",
            "verdicts", "verdicts list", "verdicts count", "verdicts get")],
    "usage": [[], ["none"], ["replay"], ["scan"], ["replay", "--for", "0", "x"],
              ["watch", "--no-launches", "--no-files"], ["scan", "--batch", "0", "x"]],
    "input": [["replay", *STATE, "@none.jsonl"], ["scan", *STATE, "@none"],
              ["replay", *STATE, "--bad", "@none.list", "@launches.jsonl"],
              ["replay", *STATE, "--bad", "@broken.list", "@launches.jsonl"],
              ["replay", *STATE, "--module", "@none.so", "--no-packages", "@launches.jsonl"],
              ["replay", "--state-dir", "@bad.list", "--no-packages", "@launches.jsonl"],
              ["queue", "list", "--state-dir", "@none"], ["verdicts", "list", "--state-dir", "@none"]],
    "replay": [["replay", *STATE, *LISTS, "--drain", "@fileops.jsonl"],
               ["replay", *STATE, *LISTS, "--drain", "@launches.jsonl"],
               ["replay", *STATE, *LISTS, "--drain", "--verbose", "@launches.jsonl"],
               ["replay", *STATE, *LISTS, "--drain", "@fileops.jsonl"],
               ["replay", *STATE, *LISTS, "--drain", "@broken.jsonl"]],
    "replay_json": [["replay", "--json", *STATE, *LISTS, "--drain", "@fileops.jsonl"],
                    ["replay", "--json", *STATE, *LISTS, "--drain", "@launches.jsonl"],
                    ["replay", "--json", *STATE, *LISTS, "--drain", "--verbose", "@launches.jsonl"],
                    ["replay", "--json", *STATE, *LISTS, "--drain", "@fileops.jsonl"],
                    ["replay", "--json", *STATE, *LISTS, "--drain", "@broken.jsonl"]],
    "scan": [["scan", *STATE, *LISTS, "--passes", "2", "@bin"], ["scan", *STATE, *LISTS, "-v", "@bin"]],
    "scan_json": [["scan", "--json", *STATE, *LISTS, "--passes", "2", "--batch", "10", "@bin"]],
    "tables": [["scan", *STATE, *LISTS, "@bin"], ["queue", "count", *STATE], ["queue", "list", *STATE],
              ["queue", "list", "--json", *STATE], ["queue", "show", "1", *STATE],
              ["verdicts", "count", *STATE], ["verdicts", "count", "--json", *STATE],
              ["verdicts", "list", *STATE], ["verdicts", "list", "--json", *STATE],
              ["verdicts", "get", BAD_KEY, *STATE], ["verdicts", "get", BAD_KEY, "--json", *STATE],
              ["verdicts", "get", "@bin/bad", *STATE]],
}


# What threads of their own print, each in its order: deliveries, what the module skips, its queries.
STREAMS = [r'\{"event":"delivered"', r'\{"event":"(skip|analysed)"|HH:MM:SS  cached',
           r'\{"event":"(query|verdict)"|HH:MM:SS  ']


def stream(line):
    return next((number for number, pattern in enumerate(STREAMS) if re.match(pattern, line)), None)


def usual(text, root):
    """The text with its variable parts replaced, and the threads' lines sorted by thread."""
    text = text.replace(str(root), "@")
    for pattern, stand_in in VARIABLE:
        text = re.sub(pattern, stand_in, text, flags=re.MULTILINE)
    lines = text.splitlines(True)
    return "".join(line for is_mixed, run in itertools.groupby(lines, lambda line: stream(line) is not None)
                   for line in (sorted(run, key=stream) if is_mixed else run))


def run(host, machine, words):
    """What one command line printed. The two streams are kept apart, not interleaved."""
    done = subprocess.run([host, *map(machine.of, words)], stdin=subprocess.DEVNULL, text=True,
                          capture_output=True, timeout=120, errors="backslashreplace",
                          env={**os.environ, "TZ": "UTC", "LC_ALL": "C", "NO_COLOR": "1"})
    out, error = usual(done.stdout, machine.root), usual(done.stderr, machine.root)
    return (f"$ tevmon-host {' '.join(words)}\n{out}" + (f"-- standard error\n{error}" if error else "") +
            f"-- exit code {done.returncode}\n\n")


def printed(host, data, case):
    with tempfile.TemporaryDirectory(prefix="tevmon-printed-") as folder:
        machine = Machine(pathlib.Path(folder), data)
        return "".join(run(host, machine, words) for words in CASES[case])


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("host")
    parser.add_argument("data", type=pathlib.Path)
    parser.add_argument("--record", action="store_true", help="write the files instead")
    arguments = parser.parse_args()
    host = os.path.abspath(arguments.host)
    with concurrent.futures.ThreadPoolExecutor(len(CASES)) as pool:  # each waits most of the time
        texts = list(pool.map(lambda case: printed(host, arguments.data, case), CASES))
    different = 0
    for case, now in zip(CASES, texts):
        file = arguments.data / "printed" / f"{case}.txt"
        if arguments.record:
            file.parent.mkdir(exist_ok=True)
            file.write_text(now, encoding="utf-8")
            continue
        before = file.read_text(encoding="utf-8")
        if now != before:
            different += 1
            sys.stdout.writelines(difflib.unified_diff(
                before.splitlines(True), now.splitlines(True), f"{case}, recorded", f"{case}, now"))
    print(f"{len(CASES)} cases, {sum(map(len, CASES.values()))} command lines, {different} different")
    sys.exit(1 if different else 0)


if __name__ == "__main__":
    main()
