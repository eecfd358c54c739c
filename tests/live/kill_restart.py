#!/usr/bin/env python3
"""Kills tevmon-host in the middle of a known number of launches and file operations, starts it again, and
accounts for every one of them.

Usage: kill_restart.py HOST [--launches N] [--files N]

First a part at rest, then the rest of them as fast as this machine gives them; while those run the host
is killed and another one started on the same state directory. Every launch carries its number in its
arguments, every file in its name. Each must be one of: analysed before the kill, waiting in the queue at the
kill and analysed after it, lost on the way into the queue at the kill, not reported (in the kernel's
buffer at the kill, or nobody watched), reported by the second host. What was not reported must be one piece
in the order of each worker. Nothing may be reported twice.

Prints the ledger. Exit code 0: it is so; 1: not; 77: this machine does not allow the test.
"""

import argparse
import base64
import collections
import json
import os
import pathlib
import re
import shutil
import signal
import sqlite3
import subprocess
import sys
import tempfile

import livehost

MARK = re.compile(r"kill-(rest|rush|resumed)-([01])-([0-9]+)-")
AT_REST = 200
REST_RATE = "100"


def streams(launches, files):
    """What the generators do: stream -> how many; a stream's numbers come in order."""
    truth = {}
    for part, number in (("rest", AT_REST), ("rush", launches), ("resumed", AT_REST)):
        for worker in "01":
            truth[f"launch {part} {worker}"] = number // 2
    for part, number in (("rest", AT_REST), ("rush", files), ("resumed", AT_REST)):
        for operation in ("create", "write", "remove"):
            truth[f"{operation} {part}"] = number
    return truth


def marks_of(body, prefix):
    """(stream, number) of every event of the generators that one message reports."""
    found = []
    for element in json.loads(body)["param"]:
        mark = MARK.search(element.get("cmd", ""))
        path = element.get("path", "")
        if mark:
            found.append((f"launch {mark.group(1)} {mark.group(2)}", int(mark.group(3))))
        elif path.startswith(prefix) and not path.startswith(prefix + "last"):
            part, _, number = path[len(prefix):].partition(".")
            found.append((f"{element['optertion']} {part}", int(number)))
    return found


def recorded(path):
    """The messages that the host recorded, in order; the last may be cut by the kill."""
    lines = path.read_bytes().decode("latin-1").split("\n")
    return lines[:-1]


def queued(folder):
    """The messages that wait in the queue, as nobody works with it."""
    database = sqlite3.connect(folder / "state/data/db/tevchennaldb.db")
    try:
        return [base64.b64decode(row[0]).decode("latin-1")
                for row in database.execute("select detail from msgchennal order by id")]
    finally:
        database.close()


class Generators:
    """Two workers that start programs, and a process that makes, closes and removes files."""

    def __init__(self, folder):
        self.spawner = livehost.build(folder, "spawner", "-pthread")
        self.tiny = livehost.build_tiny(folder)
        self.toucher = livehost.build(folder, "toucher")
        # cron reads no file with a dot in its name
        self.prefix = f"/etc/cron.d/tevmon-kill.{os.getpid()}-"

    def start(self, part, launches, files, *rate):
        return [subprocess.Popen([self.spawner, self.tiny, str(launches), "2", f"kill-{part}", *rate],
                                 stdout=subprocess.DEVNULL),
                subprocess.Popen([self.toucher, self.prefix + part, str(files), *rate])]


def finish(processes):
    for process in processes:
        if process.wait(livehost.DEADLINE) != 0:
            sys.exit(f"{process.args[0]} failed")


def is_past(number):
    def wanted(record):
        mark = MARK.search(record.get("cmd", "")) if record["event"] == "launch" else None
        return bool(mark) and mark.group(1) == "rush" and int(mark.group(3)) >= number
    return wanted


def all_judged(host, folder, prefix):
    """A program and a file of its own, the last of each kind: waits until the module has analysed both."""
    last = folder / f"last-{len(host.records)}"
    shutil.copy("/bin/true", last)
    with open(last, "ab") as program:
        program.write(os.urandom(8))
    subprocess.run([last], check=True)
    place = pathlib.Path(f"{prefix}last.{len(host.records)}")
    place.touch()
    try:
        seen = set()
        if not host.wait_for(lambda record: record["event"] in ("query", "skip") and (
                seen.add(record["path"]) or {str(last), str(place)} <= seen)):
            sys.exit(f"{last} and {place} were not judged: {host.said()}")
    finally:
        place.unlink()


def pieces(numbers):
    """How many runs of neighbours a set of numbers is made of."""
    return sum(1 for number in numbers if number - 1 not in numbers)


def account(truth, first, waiting, second, prefix):
    """The ledger, and what is wrong with it."""
    reported = {}
    twice = []
    for where, bodies in (("first", first), ("second", second)):
        for body in bodies:
            fate = "reported after the restart"
            if where == "first":
                fate = "waiting at the kill" if body in waiting else "analysed before the kill"
            for mark in marks_of(body, prefix):
                if mark in reported:
                    twice.append(f"reported twice: {mark}")
                reported[mark] = fate
    ledger = collections.Counter(reported.values())
    wrong = twice
    for stream, count in truth.items():
        missing = {number for number in range(count) if (stream, number) not in reported}
        ledger["not reported: in the kernel's buffer at the kill, or nobody watched"] += len(missing)
        if pieces(missing) > 1 or (missing and "rush" not in stream):
            wrong.append(f"{stream}: missing in {pieces(missing)} pieces: {sorted(missing)[:10]}")
    strangers = [mark for mark in reported if mark[1] >= truth.get(mark[0], 0)]
    wrong += [f"reported and never done: {mark}" for mark in strangers]
    return ledger, wrong


def run(args, folder):
    generators = Generators(folder)
    truth = streams(args.launches, args.files)
    first = livehost.Host(args.host, folder, "--record", str(folder / "first"), repeats=False)
    finish(generators.start("rest", AT_REST, AT_REST, REST_RATE))
    all_judged(first, folder, generators.prefix)
    rush = generators.start("rush", args.launches, args.files)
    if not first.wait_for(is_past(args.launches // 8)):
        sys.exit("the rush was not seen")
    first.process.send_signal(signal.SIGKILL)
    first.process.wait()
    first.wait_for(lambda record: False)
    bodies = recorded(folder / "first")
    stored_by_record = {record["batch"] for record in first.of("delivered")}
    waiting = set(queued(folder))
    # Recorded, not delivered and not in the queue: the kill met them on their way.
    on_the_way = [body for number, body in enumerate(bodies, 1)
                  if number not in stored_by_record and body not in waiting]
    second = livehost.Host(args.host, folder, "--record", str(folder / "second"), repeats=False)
    finish(rush)  # on a slow host it has ended before
    finish(generators.start("resumed", AT_REST, AT_REST, REST_RATE))
    all_judged(second, folder, generators.prefix)
    code = second.stop()
    balance = second.balance()
    handed = [body for body in bodies if body not in on_the_way]
    ledger, wrong = account(truth, handed, waiting, recorded(folder / "second"), generators.prefix)
    lost = sum(len(marks_of(body, generators.prefix)) for body in on_the_way)
    ledger["lost on the way into the queue"] += lost
    ledger["not reported: in the kernel's buffer at the kill, or nobody watched"] -= lost
    left = sum(len(marks_of(body, generators.prefix)) for body in queued(folder))
    for fate, number in sorted(ledger.items()):
        print(f"{number:8}  {fate}")
    total = sum(truth.values())
    unexplained = total - sum(ledger.values())
    print(f"{total:8}  done: launches and file operations; {unexplained} unexplained; the second host: "
          f"{balance['unexplained']} unexplained, {left} of them left in the queue, exit code {code}")
    print("\n".join(wrong[:20]))
    good = (not wrong and unexplained == 0 and balance["unexplained"] == 0 and left == 0 and code == 0
            and ledger["analysed before the kill"] + ledger["waiting at the kill"] > 0
            and ledger["reported after the restart"] > 0)
    return 0 if good else 1


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("host")
    parser.add_argument("--launches", type=int, default=6000)
    parser.add_argument("--files", type=int, default=6000)
    args = parser.parse_args()
    livehost.check_machine()
    with tempfile.TemporaryDirectory(prefix="tevmon-live-") as name:
        return run(args, pathlib.Path(name))


if __name__ == "__main__":
    sys.exit(main())
