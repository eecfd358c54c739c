#!/usr/bin/env python3
"""Starts programs in a known number and in many ways while tevmon-host watches, and compares.

Usage: watch_launches.py launches|overflow|privilege HOST [--runs N]

launches: every start must be told once, under a path that leads to the file started and with its
arguments; a start that fails must not be told; the balance must leave nothing unexplained.
overflow: while the host is stopped more is started than the kernel's buffer holds; what is told and what
is announced as lost must be all of it.
privilege: without capabilities the host says what is missing and ends with 10.

Prints one line of counts. Exit code 0: so it was; 1: not; 77: this machine does not allow the test.
"""

import argparse
import collections
import ctypes
import json
import os
import pathlib
import queue
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time

SKIPPED = 77
CAP_SYS_ADMIN, CAP_BPF = 21, 39
DEADLINE = 60
PR_CAPBSET_DROP = 24


def skip(reason):
    print(f"skipped: {reason}")
    sys.exit(SKIPPED)


def check_machine():
    if os.geteuid() != 0:
        skip("needs root")
    status = pathlib.Path("/proc/self/status").read_text()
    capabilities = int(status.split("CapEff:")[1].split()[0], 16)
    if not capabilities >> CAP_SYS_ADMIN & 1 and not capabilities >> CAP_BPF & 1:
        skip("needs the capability CAP_BPF or CAP_SYS_ADMIN")
    if not os.path.exists("/sys/kernel/btf/vmlinux"):
        skip("needs a kernel with /sys/kernel/btf/vmlinux")


class Host:
    """tevmon-host watch with its records read as they come."""

    def __init__(self, program, folder):
        self.recording = folder / "recording.jsonl"
        self.errors = open(folder / "errors", "w+")
        self.process = subprocess.Popen(
            [program, "--json", "--state-dir", str(folder / "state"), "watch", "--no-packages",
             "--record", str(self.recording)], stdout=subprocess.PIPE, stderr=self.errors)
        self.records = []
        self.incoming = queue.Queue()
        threading.Thread(target=self.read, daemon=True).start()
        if not self.wait_for(lambda record: record["event"] == "start"):
            self.process.wait(DEADLINE)
            self.errors.seek(0)
            said = self.errors.read().strip()
            if "built without" in said:
                skip(said)
            sys.exit(f"the host did not start: {said}")

    def read(self):
        for line in self.process.stdout:
            self.incoming.put(json.loads(line))
        self.incoming.put(None)

    def wait_for(self, wanted):
        """Takes records until wanted() is true for one; False at the end or the deadline."""
        end = time.monotonic() + DEADLINE
        while True:
            try:
                record = self.incoming.get(timeout=max(0, end - time.monotonic()))
            except queue.Empty:
                return False
            if record is None:
                return False
            self.records.append(record)
            if wanted(record):
                return True

    def stop(self):
        self.process.send_signal(signal.SIGINT)
        self.wait_for(lambda record: False)
        return self.process.wait(DEADLINE)


class Starts:
    """Starts programs, each with a mark of its own in its arguments, and knows what is expected."""

    def __init__(self, folder):
        self.folder = folder
        self.expected = {}  # mark -> list of (allowed paths, command line or None)
        self.forbidden = {}  # mark -> paths that must not be told; all when None
        self.number = 0

    def mark(self):
        self.number += 1
        return f"mark-{os.getpid()}-{self.number}-end"

    def run(self, path, arguments=(), name=None, paths=None, **more):
        mark = self.mark()
        argv = [name or path, mark, *arguments]
        command = b" ".join(os.fsencode(each) for each in argv).decode(errors="replace")
        self.expected[mark] = [(paths or [path], command)]
        subprocess.run(argv, executable=path, check=True, **more)
        return mark

    def plain(self, runs):
        for _ in range(runs):
            mark = self.mark()
            self.expected[mark] = [(["/bin/true"], f"/bin/true {mark}")]
            pid = os.posix_spawn("/bin/true", ["/bin/true", mark], {})
            os.waitpid(pid, 0)

    def kinds(self):
        folder = self.folder
        tool = shutil.copy("/bin/true", folder / "tool")
        (folder / "link").symlink_to("tool")
        os.link(tool, folder / "hard")
        self.run(str(tool))
        self.run("./tool", paths=[str(tool)], cwd=folder)
        self.run("sub/../tool", paths=[f"{folder}/sub/../tool"], cwd=self.made("sub"))
        self.run(str(folder / "link"))
        self.run(str(folder / "hard"))
        self.run("/proc/self/cwd/tool", paths=[str(tool)], cwd=folder)
        self.run(str(tool), name="another name")
        self.run(str(tool), ["", " ", "a  b", "\n", "\t", '"', "\\", "'", "%s%n"])
        self.run(str(tool), [b"\xff\xfe \xc3", "\u65e5\u672c"])
        self.run(str(tool), ["x"] * 2000)
        for name in ("with blank", "quote\"", "line\nfeed", "back\\slash", "\u65e5"):
            self.run(str(shutil.copy(tool, folder / name)))
        self.long_arguments(tool)
        self.scripts()
        self.without_name(tool)
        self.mount_namespace(tool)
        self.failing()
        thread = threading.Thread(target=self.run, args=(str(tool),))
        thread.start()
        thread.join()
        mark = self.mark()  # two images of one process
        self.expected[mark] = [(["/usr/bin/dash"], None), ([str(tool)], f"{tool} {mark}")]
        subprocess.run(["/bin/sh", "-c", f"exec {tool} {mark}"], check=True)

    def made(self, name):
        (self.folder / name).mkdir()
        return self.folder

    def long_arguments(self, tool):
        mark = self.run(str(tool), ["y" * 20000])
        self.expected[mark] = [([str(tool)], f"{tool} {mark} ".ljust(16384, "y"))]

    def scripts(self):
        script = self.folder / "script.sh"
        script.write_text("#!/bin/sh\n:\n")
        script.chmod(0o755)
        for name, cwd in ((str(script), None), ("./script.sh", self.folder)):
            mark = self.mark()
            command = f"/bin/sh {name} {mark}"
            self.expected[mark] = [(["/usr/bin/dash"], command), ([str(script)], command)]
            subprocess.run([name, mark], cwd=cwd, check=True)

    def without_name(self, tool):
        """A memfd and a file without a name, each kept running until it was told."""
        self.alive = []
        memory = os.memfd_create("mem", 0)
        os.write(memory, pathlib.Path("/bin/cat").read_bytes())
        gone = shutil.copy("/bin/cat", self.folder / "gone")
        deleted = os.open(gone, os.O_RDONLY)
        os.unlink(gone)
        for fd in (memory, deleted):
            mark = self.mark()
            process = subprocess.Popen(["cat", "-", mark], executable=f"/proc/self/fd/{fd}",
                                       stdin=subprocess.PIPE, pass_fds=[fd],
                                       stderr=subprocess.DEVNULL)
            self.expected[mark] = [([f"/proc/{process.pid}/exe"], f"cat - {mark}")]
            self.alive.append(process)

    def mount_namespace(self, tool):
        """Another file under the name of a clean one, seen by the process only."""
        clean = shutil.copy("/bin/cat", self.folder / "clean")
        mark = self.mark()
        process = subprocess.run(
            ["unshare", "-m", "/bin/sh", "-c", f"mount --bind {tool} {clean} && {clean} {mark}"])
        if process.returncode == 0:
            self.forbidden[mark] = {str(clean)}

    def failing(self):
        (self.folder / "data").write_text("no program")
        for path in (self.folder / "data", self.folder / "nowhere"):
            mark = self.mark()
            self.forbidden[mark] = None
            try:
                subprocess.run([str(path), mark], check=False)
                sys.exit(f"{path} could be started")
            except OSError:
                pass


def compare(starts, records):
    """What is wrong with the launches told, as lines."""
    told = collections.defaultdict(list)
    for record in records:
        if record["event"] == "launch":
            for word in record["cmd"].replace("\n", " ").split(" "):
                if word in starts.expected or word in starts.forbidden:
                    told[word].append(record)
                    break
    wrong = []
    for mark, expected in starts.expected.items():
        if len(told[mark]) != len(expected):
            wrong.append(f"{mark}: {len(told[mark])} launches told, {len(expected)} expected")
            continue
        for record, (paths, command) in zip(told[mark], expected):
            if record["path"] not in paths:
                wrong.append(f"{mark}: told as {record['path']}, not {paths}")
            if command is not None and record["cmd"] != command:
                wrong.append(f"{mark}: arguments {record['cmd'][:200]!r}, not {command[:200]!r}")
    for mark, paths in starts.forbidden.items():
        for record in told[mark]:
            if paths is None or record["path"] in paths:
                wrong.append(f"{mark}: told as {record['path']}")
    return wrong


def launches(args):
    check_machine()
    with tempfile.TemporaryDirectory(prefix="tevmon-live-") as name:
        folder = pathlib.Path(name)
        host = Host(args.host, folder)
        starts = Starts(folder)
        begun = time.monotonic()
        starts.plain(args.runs)
        seconds = time.monotonic() - begun
        starts.kinds()
        last = folder / "last"
        shutil.copy("/bin/true", last)
        starts.run(str(last))
        if not host.wait_for(lambda r: r["event"] in ("query", "skip") and r["path"] == str(last)):
            sys.exit("the last program was never judged")
        for process in starts.alive:
            process.communicate()
        code = host.stop()
        raw_names = b"\xff\xfe \xc3" in host.recording.read_bytes()
    wrong = compare(starts, host.records)
    balance = [record for record in host.records if record["event"] == "balance"][-1]
    print("\n".join(wrong[:20]))
    print(f"{len(starts.expected)} starts, {len(wrong)} told wrongly or not at all; "
          f"{args.runs / seconds:.0f} plain ones a second; sensed {balance['sensed']}, delivered "
          f"{balance['delivered']}, unresolvable {balance['unresolvable']}, lost {balance['lost']}, "
          f"looked at {balance['looked_at']}, gone {balance['gone']}, waiting {balance['waiting']}, "
          f"unexplained {balance['unexplained']}; exit code {code}")
    good = (not wrong and code == 0 and raw_names and balance["unexplained"] == 0
            and balance["lost"] == 0 and balance["sensed"] >= len(starts.expected))
    return 0 if good else 1


def overflow(args):
    check_machine()
    with tempfile.TemporaryDirectory(prefix="tevmon-live-") as name:
        host = Host(args.host, pathlib.Path(name))
        host.process.send_signal(signal.SIGSTOP)
        filler = "y" * 16000  # a start then takes 16 KiB of the 8 MiB
        for _ in range(args.runs):
            os.waitpid(os.posix_spawn("/bin/true", ["/bin/true", "overflow-mark", filler], {}), 0)
        host.process.send_signal(signal.SIGCONT)
        if not host.wait_for(lambda record: record["event"] == "lost"):
            sys.exit("no loss was announced")
        subprocess.run(["/bin/true", "after-mark"], check=True)
        if not host.wait_for(lambda r: r["event"] == "launch" and "after-mark" in r["cmd"]):
            sys.exit("a start after the loss was not told")
        code = host.stop()
    told = sum(record["event"] == "launch" and "overflow-mark" in record["cmd"]
               for record in host.records)
    announced = sum(record["launches"] for record in host.records if record["event"] == "lost")
    balance = [record for record in host.records if record["event"] == "balance"][-1]
    print(f"{args.runs} starts: {told} told, {balance['lost']} lost on the machine, {announced} of "
          f"them announced; sensed {balance['sensed']}, unexplained {balance['unexplained']}; "
          f"exit code {code}")
    good = (0 < told < args.runs and told + balance["lost"] >= args.runs
            and announced == balance["lost"] and balance["unexplained"] == 0 and code == 0)
    return 0 if good else 1


def privilege(args):
    if os.geteuid() != 0:
        skip("needs root, to give up what root has")

    def drop():
        libc = ctypes.CDLL(None, use_errno=True)
        capability = 0
        while libc.prctl(PR_CAPBSET_DROP, capability, 0, 0, 0) == 0:
            capability += 1

    with tempfile.TemporaryDirectory(prefix="tevmon-live-") as folder:
        done = subprocess.run([args.host, "--state-dir", f"{folder}/state", "watch", "--for", "1"],
                              preexec_fn=drop, capture_output=True, text=True, timeout=DEADLINE)
    print(f"exit code {done.returncode}: {done.stderr.strip()}")
    if "built without" in done.stderr:
        skip("the sensor is not in this build")
    return 0 if done.returncode == 10 and "run as root" in done.stderr else 1


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("part", choices=["launches", "overflow", "privilege"])
    parser.add_argument("host")
    parser.add_argument("--runs", type=int, default=2000)
    args = parser.parse_args()
    return {"launches": launches, "overflow": overflow, "privilege": privilege}[args.part](args)


if __name__ == "__main__":
    sys.exit(main())
