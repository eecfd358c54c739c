#!/usr/bin/env python3
"""Starts programs in a known number and in many ways while tevmon-host watches, and compares.

Usage: watch_launches.py PART HOST [--sensor ebpf|connector-fanotify|connector] [--runs N]

Parts that are tests (tests/live/CMakeLists.txt); exit code 0: so it was, 1: not, 77: this machine
does not allow it:
  launches   every start of launch_kinds.py must be reported once, under a path that leads to the file
             started and with its arguments; a start that fails must not be reported; nothing may be
             unexplained. With a fallback: no wrong path and no failed start, and how much was reported.
  overflow   while the host is stopped more is started than the kernel's buffer holds; what is reported
             and what is announced as lost must be all of it.
  privilege  without capabilities the host says what is missing and ends with 10.
  types      what the module makes of shell, Python and PHP scripts given to an interpreter.

Parts that print figures, and end with 1 when a launch is missing; times are printed, not judged:
  rate       20,000 runs of /bin/true, then of a static program that works 1 ms; two workers.
  storm      100,000 starts as fast as this machine can, and the sensor's time for each.
  stopped    the host is stopped for three seconds under load, and how it comes back.
"""

import argparse
import collections
import contextlib
import ctypes
import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time

import launch_kinds
import livehost

CAPABILITIES_DROPPED = 24  # prctl's PR_CAPBSET_DROP
WORKERS = 2
MOST_ANNOUNCEMENTS = 10  # of one stop; a host that is slow at first may lose a few more afterwards


def balance_text(balance):
    names = ("captured", "reported", "unresolved", "lost", "args_unreadable", "analysed", "vanished",
             "waiting", "unexplained")
    numbers = {**balance, **balance["launches"]}
    return ", ".join(f"{name} {numbers[name]}" for name in names)


def run_and_wait(kinds, host, name="last"):
    """Starts one more program and waits until the module has analysed it."""
    last = kinds.folder / name
    shutil.copy("/bin/true", last)
    kinds.run("last", [str(last)])
    host.judged(last)


def launches(args):
    livehost.check_machine(args.sensor)
    with tempfile.TemporaryDirectory(prefix="tevmon-live-") as name:
        folder = pathlib.Path(name)
        recording = folder / "recording.jsonl"
        kinds = launch_kinds.Kinds(folder, livehost.build_tiny(folder))
        host = livehost.Host(args.host, folder, "--no-files", "--record", str(recording),
                             sensor=args.sensor)
        begun = time.monotonic()
        kinds.plain(args.runs)
        seconds = time.monotonic() - begun
        kinds.all()
        kinds.replaced(host.process)
        run_and_wait(kinds, host)
        kinds.end()
        code = host.stop()
        raw_names = b"\xff\xfe \xc3" in recording.read_bytes()
        result = launch_kinds.Comparison(kinds, host.records)
    balance = host.balance()
    faults = result.wrong + (result.missed if args.sensor == "ebpf" else [])
    print("\n".join(faults[:20] if args.sensor == "ebpf" else
                    faults[:20] + [f"  not reported so: {each}" for each in result.missed[:20]]))
    for each in kinds.left_out:
        print(f"left out: {each}")
    print(f"{args.sensor}: {len(result.kinds)} kinds, {result.execs} execs, "
          f"{100 * result.reported / result.execs:.2f} % reported, paths {percent(result.right_paths, result)},"
          f" arguments {percent(result.right_arguments, result)}; {len(result.wrong)} reported wrongly, "
          f"{len(result.missed)} not as expected; {args.runs / seconds:.0f} plain ones a second; "
          f"{balance_text(balance)}; exit code {code}")
    good = (not faults and code == 0 and raw_names and balance["unexplained"] == 0
            and balance["launches"]["lost"] == 0 and balance["launches"]["captured"] >= result.execs)
    return 0 if good else 1


def percent(count, result):
    return f"{100 * count / result.execs:.2f} %"


def reported_after(host):
    subprocess.run(["/bin/true", "after-mark"], check=True)
    return host.wait_for(lambda r: r["event"] == "launch" and "after-mark" in r["cmd"], 1)


def overflow(args):
    livehost.check_machine(args.sensor)
    with tempfile.TemporaryDirectory(prefix="tevmon-live-") as name:
        host = livehost.Host(args.host, pathlib.Path(name), "--no-files", sensor=args.sensor)
        host.process.send_signal(signal.SIGSTOP)
        filler = "y" * 16000  # a start then takes 16 KiB of the 8 MiB
        for _ in range(args.runs):
            os.waitpid(os.posix_spawn("/bin/true", ["/bin/true", "overflow-mark", filler], {}), 0)
        host.process.send_signal(signal.SIGCONT)
        if not host.wait_for(lambda record: record["event"] == "lost"):
            sys.exit("no loss was announced")
        # A loss is reported while what was kept is still being taken: the first may find no room yet.
        if not any(reported_after(host) for _ in range(livehost.DEADLINE)):
            sys.exit("a start after the loss was not reported")
        code = host.stop()
    reported = sum("overflow-mark" in record["cmd"] for record in host.of("launch"))
    announced = sum(record["launches"] for record in host.of("lost"))
    balance = host.balance()
    print(f"{args.runs} starts: {reported} reported, {balance['launches']['lost']} lost on the machine, {announced} of "
          f"them announced; captured {balance['launches']['captured']}, unexplained {balance['unexplained']}; "
          f"exit code {code}")
    good = (0 < reported < args.runs and reported + balance["launches"]["lost"] >= args.runs
            and announced == balance["launches"]["lost"] and balance["unexplained"] == 0 and code == 0)
    return 0 if good else 1


def privilege(args):
    if os.geteuid() != 0:
        livehost.skip("needs root, to give up what root has")

    def drop():
        libc = ctypes.CDLL(None, use_errno=True)
        capability = 0
        while libc.prctl(CAPABILITIES_DROPPED, capability, 0, 0, 0) == 0:
            capability += 1

    good = True
    with tempfile.TemporaryDirectory(prefix="tevmon-live-") as folder:
        for sensor in ("auto", "ebpf", "connector-fanotify", "connector"):
            done = subprocess.run(
                [args.host, "--state-dir", f"{folder}/state", "watch", "--no-files", "--sensor",
                 sensor, "--for", "1"], preexec_fn=drop, capture_output=True, text=True,
                timeout=livehost.DEADLINE)
            print(f"{sensor}: exit code {done.returncode}: {done.stderr.strip()}")
            absent = sensor == "ebpf" and "built without" in done.stderr
            good = good and (absent or (done.returncode == 10 and "run as root" in done.stderr))
    return 0 if good else 1


def types(args):
    """bash, sh, python3 and a stand-in named php, each with a script as its argument."""
    livehost.check_machine(args.sensor)
    wanted = {"bash a.sh": "1", "sh a.sh": "1", "python3 a.py": "2", "php a.php": "3"}
    with tempfile.TemporaryDirectory(prefix="tevmon-live-") as name:
        folder = pathlib.Path(os.path.realpath(name))
        for script in ("a.sh", "a.py", "a.php"):
            (folder / script).write_text("")
        # What the module skips because of its cache has no query, so each is a file of its own.
        programs = {"php": shutil.copy("/bin/true", folder / "php")}
        for word in ("bash", "sh", "python3"):
            programs[word] = os.path.realpath("/bin/sh") if word == "sh" else f"/usr/bin/{word}"
        host = livehost.Host(args.host, folder, "--no-files", sensor=args.sensor, log_level=2)
        started = {}
        for line in wanted:
            word, script = line.split()
            executable = {"php": str(programs["php"]), "sh": "/bin/sh"}.get(word, f"/usr/bin/{word}")
            process = subprocess.Popen([word, str(folder / script)], executable=executable)
            process.wait()
            started[process.pid] = line
        last = folder / "last"
        shutil.copy("/bin/true", last)
        subprocess.run([str(last)], check=True)
        host.judged(last)
        code = host.stop()
        said = host.said()
    seen = {}
    for text in re.findall(r'reportq = (\{"msg_type":"cloudq".*?"resp_msg_type":\d+\})', said):
        items = {each["key"]: each["value"] for each in json.loads(text)["param"]["ext"]}
        pid = int(items.get("hi.process_id", "0"))
        if pid in started:
            seen.setdefault(started[pid], set()).add(items["hi.type"])
    for line, number in wanted.items():
        print(f"{line}: hi.type {', '.join(sorted(seen.get(line, {'none'})))}, {number} expected")
    return 0 if code == 0 and all(seen.get(line) == {wanted[line]} for line in wanted) else 1


class Load:
    """The spawner at work, and what it started."""

    def __init__(self, folder):
        self.spawner = livehost.build(folder, "spawner", "-pthread")
        self.tiny = livehost.build_tiny(folder)

    def begin(self, program, count, mark, *more):
        return subprocess.Popen([self.spawner, program, str(count), str(WORKERS), mark, *more],
                                stdout=subprocess.PIPE, text=True)

    @staticmethod
    def seconds(process):
        text = process.communicate()[0]
        if process.returncode != 0:
            sys.exit("the spawner failed")
        return float(text)


def reported_of(records, program, mark, count, filler=""):
    """(reported once with path and arguments right, reported at all, everything wrong)"""
    wanted = {f"{program} {mark}-{worker}-{number}-{filler}"
              for worker in range(WORKERS) for number in range(count // WORKERS)}
    right, reported, wrong = set(), 0, collections.Counter()
    for record in records:
        if f" {mark}-" not in record["cmd"] or record["event"] != "launch":
            continue
        reported += 1
        if record["path"] != program:
            wrong["path"] += 1
        elif record["cmd"] not in wanted or record["cmd"] in right:
            wrong["arguments"] += 1
        else:
            right.add(record["cmd"])
    return len(right), reported, dict(wrong)


def counts(right, reported, wrong, count, balance):
    return (f"reported {reported} of {count}, path and arguments right {right} "
            f"({100 * right / count:.3f} %), wrong {wrong or 0}, lost {balance['launches']['lost']}, "
            f"unresolved {balance['launches']['unresolved']}, unexplained {balance['unexplained']}")


def rate(args):
    livehost.check_machine(args.sensor)
    good = True
    with tempfile.TemporaryDirectory(prefix="tevmon-live-") as name:
        folder = pathlib.Path(os.path.realpath(name))
        load = Load(folder)
        for text, program, mark in (("/bin/true", "/bin/true", "r"),
                                    ("a static program of 1 ms", load.tiny, "~r")):
            host = livehost.QuietHost(args.host, folder, "--no-files", sensor=args.sensor)
            seconds = load.seconds(load.begin(program, args.runs, mark))
            code = host.stop()
            result = reported_of(host.of("launch"), program, mark, args.runs)
            print(f"{text}: {args.runs / seconds:.0f} a second; "
                  + counts(*result, args.runs, host.balance()))
            good = good and code == 0 and result[0] == args.runs and not host.balance()["launches"]["lost"]
    return 0 if good else 1


def storm(args):
    livehost.check_machine(args.sensor)
    with tempfile.TemporaryDirectory(prefix="tevmon-live-") as name, livehost.BpfTime() as bpf:
        folder = pathlib.Path(os.path.realpath(name))
        load = Load(folder)
        host = livehost.QuietHost(args.host, folder, "--no-files", sensor=args.sensor)
        before = {word: host.cpu_seconds(word) for word in ("tevmon-host", "launch_sensor")}
        seconds = load.seconds(load.begin(load.tiny, args.runs, "s"))
        reader = {word: host.cpu_seconds(word) - before[word] for word in before}
        times = bpf.of(host.process.pid)
        code = host.stop()
    result = reported_of(host.of("launch"), load.tiny, "s", args.runs)
    print(f"storm: {args.runs / seconds:.0f} a second; "
          + counts(*result, args.runs, host.balance()))
    kernel = sum(nanoseconds for nanoseconds, _ in times.values()) / args.runs / 1000
    runs = sum(number for _, number in times.values())
    print(f"sensor time for each: {kernel:.2f} us in the kernel ({runs} runs of its programs: "
          f"starts, copies, ends), {reader['launch_sensor'] / args.runs * 1e6:.2f} us of a fallback's "
          f"thread, {reader['tevmon-host'] / args.runs * 1e6:.2f} us of the reading thread with "
          "paths, message and records")
    return 0 if code == 0 and result[0] == args.runs and not host.balance()["launches"]["lost"] else 1


def stopped(args):
    livehost.check_machine(args.sensor)
    with tempfile.TemporaryDirectory(prefix="tevmon-live-") as name:
        folder = pathlib.Path(os.path.realpath(name))
        load = Load(folder)
        host = livehost.Host(args.host, folder, "--no-files", sensor=args.sensor)
        filler = "y" * 2000  # a start then takes 2 KiB of the 8 MiB
        process = load.begin(load.tiny, args.runs, "o", "8000", filler)
        host.wait_for(lambda r: r["event"] == "launch" and " o-" in r["cmd"])
        host.process.send_signal(signal.SIGSTOP)
        with contextlib.suppress(subprocess.TimeoutExpired):
            process.wait(3)
        host.process.send_signal(signal.SIGCONT)
        begun = time.monotonic()
        tries = 0
        back = None
        while back is None and tries < 100:  # a start is reported again from some moment on
            tries += 1
            subprocess.run(["/bin/true", f"after-{tries}-mark"], check=True)
            if host.wait_for(lambda r: r["event"] == "launch" and "-mark" in r["cmd"], 0.2):
                back = time.monotonic() - begun
        seconds = load.seconds(process)
        code = host.stop()
    launched = host.of("launch")
    right, reported, wrong = reported_of(launched, load.tiny, "o", args.runs, " " + filler)
    balance = host.balance()
    announced = host.of("lost")
    # Other programs of the machine may be among the lost; those of the load that are missing are.
    missing = args.runs - reported
    print(f"stopped 3 s at {args.runs / seconds:.0f} starts a second: reported {reported} + lost "
          f"{balance['launches']['lost']}, {args.runs} started ({missing} of them not reported), wrong {wrong or 0}; "
          f"{len(announced)} announcement(s) of {sum(r['launches'] for r in announced)}; "
          f"a start after it was reported in {back or -1:.2f} s; {balance_text(balance)}; exit code {code}")
    good = (code == 0 and back is not None and right == reported and balance["unexplained"] == 0
            and missing <= balance["launches"]["lost"] and len(announced) <= MOST_ANNOUNCEMENTS
            and sum(record["launches"] for record in announced) == balance["launches"]["lost"])
    return 0 if good else 1


PARTS = {"launches": (launches, 2000), "overflow": (overflow, 2000), "privilege": (privilege, 0),
         "types": (types, 0), "rate": (rate, 20000), "storm": (storm, 100000),
         "stopped": (stopped, 60000)}


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("part", choices=PARTS)
    parser.add_argument("host")
    parser.add_argument("--sensor", default="ebpf",
                        choices=["ebpf", "connector-fanotify", "connector"])
    parser.add_argument("--runs", type=int)
    args = parser.parse_args()
    part, runs = PARTS[args.part]
    args.runs = args.runs or runs
    return part(args)


if __name__ == "__main__":
    sys.exit(main())
