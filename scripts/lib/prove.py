#!/usr/bin/env python3
"""Runs the proofs of docs/assurance.md with built programs and prints their table: the work of
scripts/prove."""

import argparse
import json
import os
import re
import subprocess
import sys
import tempfile
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
# What the programs print of themselves: the name, how many, and the rest for the result.
COUNT = re.compile(r"^(?:points|kills|messages|keys|threads|starts|loads|exits|first uses|"
                   r"(?:cache )?(?:lock|disk)|output|backlog|burst): (\d+)(.*)", re.MULTILINE)
OPENS = re.compile(r"^(\d+) opens(.*)", re.MULTILINE)


class Proof:
    """One line. limits: the largest value of a figure that the program prints as "name value"."""

    def __init__(self, name, what, words, limits=(), pattern=COUNT, only_full=False):
        self.name, self.what, self.words = name, what, words
        self.limits, self.pattern, self.only_full = dict(limits), pattern, only_full


def proofs(full, seed):
    def pick(quick_value, full_value):
        return full_value if full else quick_value

    def test(program, name, *options):
        return [f"BIN/{program}", f"--gtest_filter=*{name}*", *options]

    seeded = f"--seed={seed}"
    return [
        Proof("kills", "SIGKILL at an I/O call of a burst, drain, record, expiry, creation",
              test("faults", "KillTest", f"--kills={pick(200, 1430)}", seeded)),
        Proof("io_faults", "every I/O call fails, once and for good",
              test("faults", "IoFaultsTest", seeded)),
        Proof("alloc_faults", "an allocation fails, once and for good",
              test("faults", "AllocFaultsTest", f"--step={pick(5, 1)}")),
        Proof("messages", "hostile messages through the whole road",
              test("hostile", "EveryMessage", f"--messages={pick(50000, 1000000)}", seeded)),
        Proof("keys", "cache keys that try to run SQL",
              test("hostile", "AKeyChanges", f"--keys={pick(20000, 100000)}", seeded)),
        Proof("paths", "kinds of paths, every hashing caller, under a trace of system calls",
              ["python3", "-B", "tests/hostile/path_kinds.py", "BIN/hostile"], pattern=OPENS),
        Proof("threads", "eight threads against drain, verdicts, expiry",
              test("stress", "EightThreadsAgainst", f"--seconds={pick(20, 600)}")),
        Proof("starts", "starts and stops with gaps of 0 to 10 ms",
              test("stress", "StartsAndStops", f"--starts={pick(5000, 100000)}", seeded)),
        Proof("loads", "load, init, fire from four threads, stop, uninit, unload",
              test("stress", "WholeLives", f"--loads={pick(2000, 10000)}"), {"growth_kib": 1024}),
        Proof("exit", "exits without stop while four threads fire",
              test("stress", "ExitsWithoutStop", f"--loads={pick(500, 5000)}")),
        Proof("first_use", "first uses from eight threads at once",
              test("stress", "FirstUsesFrom", f"--loads={pick(500, 5000)}")),
        Proof("lock", "another process's lock, 1,000 messages a second",
              test("stress", "ALockHeld"), {"longest_ms": 5}),
        Proof("cache_lock", "the same on the cache, answers to record",
              test("stress", "ALockOnTheCache")),
        Proof("disk", "a full disk, messages to queue", test("stress", "AFullDiskLosesWhat")),
        Proof("cache_disk", "a full disk, answers to record",
              test("stress", "AFullDiskLosesVerdicts")),
        Proof("output", "standard output that nobody reads", test("stress", "NobodyReads")),
        Proof("backlog", "messages queued, then drained",
              test("stress", "ABacklog", f"--backlog={pick(100000, 1000000)}"),
              {"growth_kib": 16 * 1024, "push_ratio": 1.2, "drain_ratio": 1.2}),
        Proof("burst", "messages of 4 KiB from four threads",
              test("stress", "ABurst", f"--burst={pick(20000, 50000)}")),
        Proof("fuzz", "every fuzz target, processor minutes each",
              ["scripts/fuzz", pick("0.2", "30"), "--total", "--json"], only_full=True),
        Proof("tsan", "eight threads under the thread sanitizer",
              ["setarch", "-R", "build/tsan/bin/stress", "--gtest_filter=*EightThreadsAgainst*",
               f"--seconds={pick(10, 600)}"], only_full=True),
    ]


class Outcome:
    def __init__(self, proof, code, text, seconds):
        self.proof, self.seconds = proof, seconds
        self.many, self.said = self.counts(text)
        self.misses = [f"{name} {value} above {proof.limits[name]}"
                       for name, value in re.findall(r"(\w+) (-?[0-9.e+]+)", text)
                       if name in proof.limits and float(value) > proof.limits[name]]
        self.misses += [f"{name} was not printed" for name in proof.limits if f"{name} " not in text]
        if code == 77 or code == 0 and "[  SKIPPED ]" in text:
            self.result, self.misses = "skipped", []
        elif code != 0:
            self.result = "FAILS"
        elif self.many == 0:
            self.result, self.misses = "FAILS", ["it did nothing"]
        else:
            self.result = "MISSED" if self.misses else "holds"

    def counts(self, text):
        if self.proof.name == "fuzz":
            targets = [json.loads(line) for line in text.splitlines() if line.startswith("{")]
            least = min((target["cpu_minutes_altogether"] for target in targets), default=0)
            found = sum(target["finding"] for target in targets)
            return (sum(target["runs"] for target in targets),
                    f"{len(targets)} targets, at least {least} minutes each, {found} findings")
        found = self.proof.pattern.findall(text)
        rest = {rest.lstrip(", ") for _, rest in found if rest}
        return sum(int(count) for count, _ in found), rest.pop() if len(rest) == 1 else ""

    def row(self, command):
        said = "; ".join(part for part in [self.result, self.said, *self.misses] if part)
        return f"| {self.proof.name} | {self.proof.what} | {self.many:,} | {said} | {self.seconds:.0f} | `{command}` |"

    def as_json(self, command):
        return json.dumps({"proof": self.proof.name, "what": self.proof.what, "many": self.many,
                           "result": self.result, "said": self.said, "misses": self.misses,
                           "seconds": round(self.seconds, 1), "command": command})


def run(proof, binaries, seconds):
    """The outcome and what was printed; the two streams are one, a failure names seed and number."""
    command = [word.replace("BIN", binaries, 1) for word in proof.words]
    started = time.monotonic()
    with tempfile.TemporaryFile() as output:
        process = subprocess.Popen(command, cwd=ROOT, stdin=subprocess.DEVNULL, stdout=output, stderr=output)
        while True:
            try:
                code = process.wait(1)
                break
            except subprocess.TimeoutExpired:
                if time.monotonic() - started > seconds:
                    process.kill()
                    output.write(f"\nprove: hangs, ended after {seconds} s\n".encode())
                if sys.stderr.isatty():
                    print(f"\r{proof.name} {time.monotonic() - started:.0f} s ", end="", file=sys.stderr, flush=True)
        if sys.stderr.isatty():
            print("\r\033[K", end="", file=sys.stderr, flush=True)
        size = output.seek(0, os.SEEK_END)
        output.seek(max(0, size - 4_000_000))
        text = output.read().decode(errors="replace")
    return Outcome(proof, code, text, time.monotonic() - started), text, " ".join(command)


def main():
    parser = argparse.ArgumentParser(prog="scripts/lib/prove.py", description=__doc__)
    parser.add_argument("binaries", help="the folder of the built programs")
    parser.add_argument("names", nargs="*")
    parser.add_argument("--full", action="store_true")
    parser.add_argument("--json", action="store_true")
    parser.add_argument("--list", action="store_true")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--timeout", type=int, default=4 * 3600, help="seconds for a line; a hang fails")
    words = parser.parse_args()
    everything = proofs(words.full, words.seed)
    if words.list:
        print("\n".join(proof.name for proof in everything))
        return 0
    wanted = [proof for proof in everything
              if proof.name in words.names or not words.names and (words.full or not proof.only_full)]
    if not words.json:
        print("| proof | what is tried | how many | result | s | command |\n|---|---|---|---|---|---|", flush=True)
    code = 0
    for proof in wanted:
        outcome, text, command = run(proof, words.binaries, words.timeout)
        print(outcome.as_json(command) if words.json else outcome.row(command), flush=True)
        if outcome.result in ("FAILS", "MISSED"):
            code = 1
            print("\n".join(text.splitlines()[-40:]), file=sys.stderr, flush=True)
    return code


if __name__ == "__main__":
    sys.exit(main())
