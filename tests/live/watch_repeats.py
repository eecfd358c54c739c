#!/usr/bin/env python3
"""Starts the same programs again and again, and looks whether each start is reported or counted.

Usage: watch_repeats.py HOST [--runs N]

A good program by two users and two starters, a bad one, a script, an interpreter and a program that is
rewritten between two starts. Each start has a record. Of the good one some are reported to the module, at
least one for each user and starter, and of all the others each. Exit code 0: so it was, 1: not, 77: this machine does
not allow it.
"""

import argparse
import collections
import hashlib
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile

import livehost

NOBODY = 65534


def digest_line(path):
    return hashlib.sha1(path.read_bytes()).hexdigest() + f"  {path.name}\n"


def started(host, path):
    """The records of the launches that were reported."""
    return [record for record in host.of("launch")
            if record["path"] == str(path) and not record["repeated"]]


def repeats(host):
    return [record for record in host.of("launch") if record["repeated"]]


def run_as(user, starter, program, count):
    """count starts by the program starter, for user."""
    subprocess.run([starter, program, str(count), "1", "mark"], check=True, stdout=subprocess.DEVNULL,
                   user=user)


class Check:
    def __init__(self):
        self.faults = 0

    def that(self, good, text):
        self.faults += not good
        print(("" if good else "WRONG: ") + text)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("part", nargs="?")
    parser.add_argument("host", type=os.path.abspath)
    parser.add_argument("--runs", type=int, default=200, help="starts of each program")
    args = parser.parse_args()
    livehost.check_machine()
    check = Check()
    with tempfile.TemporaryDirectory(prefix="tevmon-live-") as name:
        folder = pathlib.Path(os.path.realpath(name))
        folder.chmod(0o755)
        tiny = pathlib.Path(livehost.build_tiny(folder))
        starters = [pathlib.Path(livehost.build(folder, "spawner", "-pthread"))]
        starters.append(pathlib.Path(shutil.copy(starters[0], folder / "other-spawner")))
        names = ("good", "bad", "rewritten", "last")
        good, bad, rewritten, last = [pathlib.Path(shutil.copy(tiny, folder / each)) for each in names]
        for each in (bad, rewritten):
            with open(each, "ab") as text:
                text.write(each.name.encode())
        shutil.copy("/bin/true", last)
        script = folder / "script"
        script.write_text("#!/bin/sh\n")
        script.chmod(0o755)
        evil = rewritten.read_bytes() + b" evil"
        (folder / "evil").write_bytes(evil)
        bad_list = folder / "bad.txt"
        bad_list.write_text(digest_line(bad) + digest_line(folder / "evil"))
        host = livehost.Host(args.host, folder, "--no-files", "--bad", str(bad_list), repeats=True)

        for user in (0, NOBODY):
            for starter in starters:
                run_as(user, starter, good, args.runs)
        run_as(0, starters[0], bad, args.runs)
        run_as(0, starters[0], script, args.runs)
        for _ in range(args.runs):
            subprocess.run(["/bin/sh", "-c", ":"], check=True)
        run_as(0, starters[0], rewritten, args.runs)
        rewritten.write_bytes(evil)  # in place: the same inode
        run_as(0, starters[0], rewritten, args.runs)
        subprocess.run([last], check=True)
        host.judged(last)
        code = host.stop()

    reported, repeated = collections.Counter(), collections.Counter()
    for record in started(host, good):
        reported[record["uid"], record["starter"]] += 1
    for record in repeats(host):
        if record["path"] == str(good):
            repeated[record["uid"], record["starter"]] += 1
    for user in (0, NOBODY):
        for starter in map(str, starters):
            told, more = reported[user, starter], repeated[user, starter]
            check.that(told > 0 and more > 0 and told + more == args.runs,
                       f"good, user {user}, by {os.path.basename(starter)}: {told} reported and {more} "
                       f"repeated of {args.runs}")
    counted = collections.Counter(record["path"] for record in repeats(host))
    marks = {record["cmd"] for record in host.of("launch") if record["path"] == str(good)}
    check.that(len(marks) == args.runs, f"good: {len(marks)} different arguments of {args.runs}")
    shown = collections.Counter(record["file"] for record in host.of("bad_run"))
    check.that(len(started(host, bad)) == shown[str(bad)] == args.runs and not counted[str(bad)],
               f"bad: {len(started(host, bad))} reported, {shown[str(bad)]} shown of {args.runs}")
    check.that(len(started(host, script)) == args.runs and not counted[str(script)],
               f"script: {len(started(host, script))} reported of {args.runs}")
    shells = [record for record in host.of("launch")
              if record["cmd"] == "/bin/sh -c :" and not record["repeated"]]
    check.that(len(shells) == args.runs, f"interpreter: {len(shells)} reported of {args.runs}")
    rewritten_reports = len(started(host, rewritten))
    check.that(rewritten_reports + counted[str(rewritten)] == 2 * args.runs
               and rewritten_reports > args.runs and shown[str(rewritten)] == args.runs,
               f"rewritten: {rewritten_reports} reported, {counted[str(rewritten)]} repeated of "
               f"{2 * args.runs}; {shown[str(rewritten)]} shown of {args.runs} with the bad content")
    balance = host.balance()
    launches = balance["launches"]
    check.that(code == 0 and balance["unexplained"] == 0 and launches["lost"] == 0
               and launches["repeated"] == sum(counted.values())
               and launches["captured"] == sum(launches[each] for each in (
                   "reported", "repeated", "unresolved", "own", "broken")),
               f"captured {launches['captured']}, reported {launches['reported']}, repeated "
               f"{launches['repeated']}, unexplained {balance['unexplained']}; exit code {code}")
    return 1 if check.faults else 0


if __name__ == "__main__":
    sys.exit(main())
