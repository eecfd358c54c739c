#!/usr/bin/env python3
"""Runs the built fuzz targets for so many processor minutes each: the work of scripts/fuzz."""

import argparse
import json
import os
import re
import subprocess
import sys
import threading
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
BUILD = ROOT / "build/fuzz"
SLICE_SECONDS = 300  # a round gives each target at most this: a run that is stopped is even

DICTIONARIES = {
    "json": {"message", "cloud_result", "process_batch", "file_batch", "json_readers", "recording"},
    "sqlite": {"queue_file", "cache_file"},
}


class Target:
    def __init__(self, name, minutes, total):
        self.name = name
        self.spent_file = BUILD / "spent" / name
        self.seconds = 0.0
        self.runs = 0
        self.covered = 0
        self.finding = False
        self.before = self.read_spent()
        self.wanted = minutes * 60 - (self.before if total else 0)

    def read_spent(self):
        return float(self.spent_file.read_text()) if self.spent_file.exists() else 0.0

    def done(self):
        return self.finding or self.seconds >= self.wanted - 0.5

    def command(self, seconds):
        name = self.name
        corpus = BUILD / "corpus" / name
        corpus.mkdir(parents=True, exist_ok=True)
        words = [BUILD / "bin" / f"fuzz_{name}", f"-max_total_time={max(1, round(seconds))}",
                 "-timeout=120", "-rss_limit_mb=4096", "-print_final_stats=1",
                 f"-artifact_prefix={BUILD}/findings/{name}-"]
        words += [f"-dict={ROOT}/fuzz/dictionaries/{kind}.dict"
                  for kind, names in DICTIONARIES.items() if name in names]
        return [str(word) for word in [*words, corpus, ROOT / "fuzz/seeds" / name]]

    def replay_findings(self):
        """What crashed before and still does is a finding, however long the target has run since."""
        for file in sorted((BUILD / "findings").glob(f"{self.name}-*")):
            if file.name.startswith(f"{self.name}-slow-unit"):
                continue
            done = subprocess.run([BUILD / "bin" / f"fuzz_{self.name}", file], stdin=subprocess.DEVNULL,
                                  stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=False)
            if done.returncode != 0:
                self.finding = True
                print(f"{file} is still a finding", file=sys.stderr)

    def run_slice(self):
        log = BUILD / f"{self.name}.log"
        with open(log, "wb") as output:
            process = subprocess.Popen(self.command(min(SLICE_SECONDS, self.wanted - self.seconds)),
                                       stdin=subprocess.DEVNULL, stdout=output, stderr=output)
            _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
        self.seconds += usage.ru_utime + usage.ru_stime
        text = log.read_text(errors="replace")
        self.runs += int((re.findall(r"^Done (\d+) runs", text, re.M) or ["0"])[-1])
        self.covered = int((re.findall(r"cov: (\d+)", text) or ["0"])[-1])
        if process.returncode != 0:
            self.finding = True
            sys.stderr.write("\n".join(text.splitlines()[-40:]) + "\n")
        self.spent_file.parent.mkdir(exist_ok=True)
        self.spent_file.write_text(f"{self.before + self.seconds:.1f}\n")

    def report(self, as_json):
        minutes = self.seconds / 60
        altogether = (self.before + self.seconds) / 60
        if as_json:
            return json.dumps({"target": self.name, "runs": self.runs, "covered": self.covered,
                               "cpu_minutes": round(minutes, 2),
                               "cpu_minutes_altogether": round(altogether, 2),
                               "finding": self.finding})
        return (f"{self.name}: {self.runs} runs in {minutes:.1f} CPU minutes "
                f"({altogether:.1f} altogether), {self.covered} edges covered, "
                f"{'FINDING' if self.finding else 'clean'}")


def run_all(targets, jobs, as_json):
    """Rounds of slices, as many targets at once as there are jobs."""
    lock = threading.Lock()
    for target in targets:
        target.replay_findings()
    waiting = [target for target in targets if not target.done()]
    for target in targets:
        if target.done():
            print(target.report(as_json), flush=True)

    def work():
        while True:
            with lock:
                if not waiting:
                    return
                target = waiting.pop(0)
            target.run_slice()
            with lock:
                if target.done():
                    print(target.report(as_json), flush=True)
                else:
                    waiting.append(target)
                    if sys.stderr.isatty():
                        print(target.report(False) + ", going on", file=sys.stderr, flush=True)

    threads = [threading.Thread(target=work) for _ in range(jobs)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()


def main():
    parser = argparse.ArgumentParser(prog="scripts/lib/fuzz.py", description=__doc__)
    parser.add_argument("minutes", type=float)
    parser.add_argument("targets", nargs="+")
    parser.add_argument("--total", action="store_true")
    parser.add_argument("--jobs", type=int, default=os.cpu_count() or 1)
    parser.add_argument("--json", action="store_true")
    words = parser.parse_args()
    (BUILD / "findings").mkdir(exist_ok=True)
    targets = [Target(name, words.minutes, words.total) for name in words.targets]
    started = time.monotonic()
    run_all(targets, max(1, words.jobs), words.json)
    if sys.stderr.isatty():
        print(f"{len(targets)} targets in {time.monotonic() - started:.0f} s", file=sys.stderr)
    return 1 if any(target.finding for target in targets) else 0


sys.exit(main())
