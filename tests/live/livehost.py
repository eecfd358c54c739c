"""What the live tests share: a tevmon-host watch whose records are read, and helpers in C.

The helpers are compiled by cc when they are wanted; they are too small for a build of their own.
"""

import ctypes
import json
import os
import pathlib
import queue
import re
import shutil
import signal
import subprocess
import sys
import threading
import time

SKIPPED = 77
PR_SET_PDEATHSIG = 1
DEADLINE = 90
CAP_NET_ADMIN, CAP_SYS_ADMIN, CAP_BPF = 12, 21, 39
HERE = pathlib.Path(__file__).resolve().parent


def skip(reason):
    print(f"skipped: {reason}")
    sys.exit(SKIPPED)


def in_a_chroot():
    """Whether the root is no mount, which also shows where pid 1 may not be examined."""
    mounts = pathlib.Path("/proc/self/mountinfo").read_text().splitlines()
    return all(line.split()[4] != "/" for line in mounts)


def check_machine(sensor="ebpf"):
    if os.geteuid() != 0:
        skip("needs root")
    if in_a_chroot():
        skip("runs in a chroot, where the kernel's paths are not those of the test")
    status = pathlib.Path("/proc/self/status").read_text()
    capabilities = int(status.split("CapEff:")[1].split()[0], 16)
    if not capabilities >> CAP_SYS_ADMIN & 1:
        skip("needs the capability CAP_SYS_ADMIN")
    if sensor != "ebpf":
        if not capabilities >> CAP_NET_ADMIN & 1:
            skip("needs the capability CAP_NET_ADMIN")
    elif not os.path.exists("/sys/kernel/btf/vmlinux"):
        skip("needs a kernel with /sys/kernel/btf/vmlinux")


def build(folder, name, *flags):
    """Compiles the helper NAME.c into folder; its path."""
    compiler = shutil.which("cc") or skip("needs a C compiler for its helpers")
    program = folder / name
    subprocess.run([compiler, "-O2", "-o", str(program), str(HERE / f"{name}.c"), *flags],
                   check=True)
    return str(program)


def build_tiny(folder):
    """The smallest program there is: static, and without the C library where that is possible."""
    return build(folder, "tiny", "-static", "-nostdlib", "-nostartfiles", "-fno-stack-protector")


LIBC = ctypes.CDLL(None, use_errno=True)
LIBC.fanotify_mark.argtypes = [ctypes.c_int, ctypes.c_uint, ctypes.c_uint64, ctypes.c_int,
                               ctypes.c_char_p]


def refused_mark(path, whole=False):
    """Why the kernel reports nothing of a directory, or of its whole file system; "" when it does."""
    report_handles_and_names, create = 0xE00, 0x100
    add, filesystem, current = 1, 0x100, -100
    group = LIBC.fanotify_init(report_handles_and_names, os.O_RDONLY)
    if group < 0:
        return os.strerror(ctypes.get_errno())
    done = LIBC.fanotify_mark(group, add | (filesystem if whole else 0), create, current,
                              os.fsencode(path))
    refusal = "" if done == 0 else os.strerror(ctypes.get_errno())
    os.close(group)
    return refusal


def give_name(file, path):
    """Names an open file that has none; 0 when it has one then."""
    current, follow_links = -100, 0x400
    return LIBC.linkat(current, os.fsencode(f"/proc/self/fd/{file}"), current, os.fsencode(path), follow_links)


def end_with_the_test():
    """In a child before its program: a test that dies leaves no host running."""
    LIBC.prctl(PR_SET_PDEATHSIG, signal.SIGTERM)


# Set: the tests run with repeats counted by the report of the same program, as operators have it.
REPEATS = bool(os.environ.get("TEVMON_TEST_REPEATS"))


def every_launch(repeats=REPEATS):
    """What a test counts has a record of its own, unless it is about launches that have none."""
    return [] if repeats else ["--every-launch"]


class Host:
    """tevmon-host watch with its records read as they come."""

    def __init__(self, program, folder, *options, sensor="ebpf", log_level=4, repeats=REPEATS):
        self.folder = folder
        self.errors = open(folder / "errors", "w+")
        self.process = subprocess.Popen(
            [program, "--json", "--log-level", str(log_level), "--state-dir",
             str(folder / "state"), "watch", "--no-packages", "--sensor", sensor,
             *every_launch(repeats), *options],
            stdout=subprocess.PIPE, stderr=self.errors, preexec_fn=end_with_the_test)
        self.records = []
        self.incoming = queue.SimpleQueue()
        threading.Thread(target=self.read, daemon=True).start()
        if not self.wait_for(lambda record: record["event"] == "start"):
            self.process.wait(DEADLINE)
            said = self.said()
            if "built without" in said:
                skip(said)
            sys.exit(f"the host did not start: {said}")

    def said(self):
        self.errors.seek(0)
        return self.errors.read().strip()

    def read(self):
        for line in self.process.stdout:
            self.incoming.put(json.loads(line))
        self.incoming.put(None)

    def wait_for(self, wanted, deadline=DEADLINE):
        """Takes records until wanted() is true for one; False at the end or the deadline."""
        end = time.monotonic() + deadline
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

    def judged(self, path):
        """Waits until the module has queried or skipped path."""
        wanted = lambda r: r["event"] in ("query", "skip") and r["path"] == str(path)
        if not any(wanted(record) for record in self.records) and not self.wait_for(wanted):
            sys.exit(f"{path} was never judged: {self.said()}")

    def stop(self):
        self.process.send_signal(signal.SIGINT)
        self.wait_for(lambda record: False)
        return self.process.wait(DEADLINE)

    def of(self, *events):
        return [record for record in self.records if record["event"] in events]

    def balance(self):
        return self.of("balance")[-1]

    def cpu_seconds(self, thread=None):
        """Processor seconds of the process, or of its thread of that name."""
        folder = pathlib.Path(f"/proc/{self.process.pid}")
        files = [folder / "stat"]
        if thread is not None:
            files = [each / "stat" for each in (folder / "task").iterdir()
                     if (each / "comm").read_text().strip() == thread]
        return sum(cpu_of(each.read_text()) for each in files)


class QuietHost(Host):
    """The same with its records written to a file and read at the end: nobody slows it down."""

    def __init__(self, program, folder, *options, sensor="ebpf", repeats=REPEATS):
        self.folder = folder
        self.errors = open(folder / "errors", "w+")
        self.output = open(folder / "output", "w+")
        self.records = []
        self.process = subprocess.Popen(
            [program, "--json", "--state-dir", str(folder / "state"), "watch", "--no-packages",
             "--sensor", sensor, *every_launch(repeats), *options],
            stdout=self.output, stderr=self.errors, preexec_fn=end_with_the_test)
        end = time.monotonic() + DEADLINE
        while '"event":"start"' not in (folder / "output").read_text():
            try:
                self.process.wait(0.01)
            except subprocess.TimeoutExpired:
                if time.monotonic() < end:
                    continue
            skip(self.said()) if "built without" in self.said() else sys.exit(self.said())

    def text(self):
        return (self.folder / "output").read_text(errors="replace")

    def stop(self):
        self.process.send_signal(signal.SIGINT)
        code = self.process.wait(DEADLINE)
        self.records = [json.loads(line) for line in self.text().splitlines()]
        return code


def cpu_of(stat):
    fields = stat[stat.rindex(")") + 2:].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


class BpfTime:
    """The kernel's own measurement of its programs; what the switch was is put back."""

    SWITCH = pathlib.Path("/proc/sys/kernel/bpf_stats_enabled")

    def __enter__(self):
        self.before = self.SWITCH.read_text()
        self.SWITCH.write_text("1\n")
        return self

    def __exit__(self, *_):
        self.SWITCH.write_text(self.before)

    @staticmethod
    def of(pid):
        """(nanoseconds, runs) by program name, from the descriptors of a process."""
        times = {}
        for info in pathlib.Path(f"/proc/{pid}/fdinfo").iterdir():
            try:
                text = info.read_text()
            except FileNotFoundError:
                continue  # a descriptor that was closed meanwhile
            run = re.search(r"run_time_ns:\s*(\d+)\s+run_cnt:\s*(\d+)", text)
            if run and "prog_id" in text:
                times[re.search(r"prog_id:\s*(\d+)", text).group(1)] = (
                    int(run.group(1)), int(run.group(2)))
        return times
