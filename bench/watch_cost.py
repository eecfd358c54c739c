#!/usr/bin/env python3
"""What it costs to know of every program that starts: tevmon-host watch with the module, Debian's
auditd with a rule for execve, bpftrace's execsnoop and sysdig, each under the same load.

Usage: watch_cost.py HOST [--seconds 20] [--rate 1000] [--bytes N] [--install]          (root)
       watch_cost.py HOST --against HOST [--pairs 5]     two builds in turn, and the ratio

Each tool runs alone while a static program is started at that rate. Printed, side by side: processor
seconds of the tool's own processes; those of the whole machine above the same load without a tool,
which also hold what the kernel does for the tool (other work on the machine disturbs them); launches
reported and lost; and the ratio of tevmon-host to each. --bytes gives the program that size. --install gets
the packages by apt-get. What cannot run here is said with its reason. The time of tevmon-host includes
hashing, queue, verdicts and the module; the others write a line for each launch and judge nothing.
"""

import argparse
import os
import pathlib
import re
import shutil
import signal
import statistics
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "tests" / "live"))
import livehost  # noqa: E402

WORKERS = 2
KEY = "tevmon-cost"
PACKAGES = ("auditd", "bpftrace", "sysdig")
EXECSNOOP = "/usr/sbin/execsnoop.bt"


class CannotRun(Exception):
    pass


class Result:
    def __init__(self, name):
        self.name, self.own, self.machine, self.told, self.lost = name, None, None, None, "?"


def machine_busy():
    fields = [int(each) for each in pathlib.Path("/proc/stat").read_text().split("\n")[0].split()[1:]]
    user, nice, system, _, _, irq, soft = fields[:7]
    return (user + nice + system + irq + soft) / os.sysconf("SC_CLK_TCK")


def process_seconds(*pids):
    return sum(livehost.cpu_of(pathlib.Path(f"/proc/{pid}/stat").read_text()) for pid in pids)


def kernel_threads(name):
    found = []
    for folder in pathlib.Path("/proc").glob("[0-9]*"):
        try:
            if (folder / "comm").read_text().strip() == name and not (folder / "cmdline").read_text():
                found.append(folder.name)
        except OSError:
            pass  # it ended meanwhile
    return found


class Load:
    def __init__(self, folder, args):
        self.spawner = livehost.build(folder, "spawner", "-pthread")
        self.program = livehost.build_tiny(folder)
        size = os.path.getsize(self.program)
        with open(self.program, "ab") as program:
            program.write(bytes(max(0, args.bytes - size)))
        self.count = args.seconds * args.rate
        self.rate = args.rate

    def run(self, mark):
        done = subprocess.run([self.spawner, self.program, str(self.count), str(WORKERS), mark,
                               str(self.rate)], capture_output=True, text=True, check=True)
        return float(done.stdout)


def without_tool(load, _folder, _args):
    result = Result("no tool")
    before = machine_busy()
    seconds = load.run("n")
    result.machine = machine_busy() - before
    result.own, result.told, result.lost = 0.0, 0, "-"
    print(f"load: {load.count} starts in {seconds:.1f} s, {load.count / seconds:.0f} a second")
    return result


def tevmon(load, folder, args):
    result = Result("tevmon-host")
    output = folder / "output"
    with open(output, "w") as text, open(folder / "errors", "w") as errors, \
            livehost.BpfTime() as bpf:
        host = subprocess.Popen([args.host, "--json", "--state-dir", str(folder / "state"), "watch",
                                 "--no-files"], stdout=text, stderr=errors)
        wait_until(lambda: '"event":"start"' in output.read_text(), host, folder / "errors")
        before, begun = machine_busy(), process_seconds(host.pid)
        load.run("t")
        # Until the module has analysed everything: its work is part of the price.
        last = shutil.copy("/bin/true", folder / "last")
        subprocess.run([str(last)], check=True)
        wait_until(lambda: any(f'"path":"{last}"' in line and ('"query"' in line or '"skip"' in line)
                               for line in output.read_text().splitlines()[-200:]),
                   host, folder / "errors")
        result.own = process_seconds(host.pid) - begun
        kernel = sum(nanoseconds for nanoseconds, _ in bpf.of(host.pid).values()) / 1e9
        result.machine = machine_busy() - before
        host.send_signal(signal.SIGINT)
        host.wait(livehost.DEADLINE)
    lines = output.read_text().splitlines()
    result.told = sum('"event":"launch"' in line and " t-" in line for line in lines)
    balance = [line for line in lines if '"event":"balance"' in line][-1]
    result.lost = re.search(r'"lost":(\d+)', balance).group(1)
    print(f"tevmon-host: its start (package lists) took {begun:.2f} s; its program in the kernel "
          f"{kernel:.3f} s, which only the machine's seconds hold")
    return result


def wait_until(done, process, errors, seconds=livehost.DEADLINE):
    end = time.monotonic() + seconds
    while not done():
        if process.poll() is not None or time.monotonic() > end:
            raise CannotRun(errors.read_text().strip().splitlines()[-1:] or ["it said nothing"])
        time.sleep(0.05)


AUDIT_CONFIG = """log_file = {log}
log_format = RAW
log_group = root
flush = INCREMENTAL_ASYNC
freq = 50
max_log_file = 512
num_logs = 2
priority_boost = 4
name_format = NONE
max_log_file_action = IGNORE
space_left = 75
space_left_action = IGNORE
admin_space_left = 50
admin_space_left_action = IGNORE
disk_full_action = IGNORE
disk_error_action = IGNORE
"""


def auditd(load, folder, _args):
    result = Result("auditd")
    if not shutil.which("auditd"):
        raise CannotRun("auditd is not installed (--install gets it)")
    config = folder / "audit"
    config.mkdir()
    log = folder / "audit.log"
    (config / "auditd.conf").write_text(AUDIT_CONFIG.format(log=log))
    for each in ("plugins.d", "rules.d"):
        (config / each).mkdir()
    errors = folder / "errors"
    with open(errors, "w") as text:
        daemon = subprocess.Popen(["auditd", "-n", "-c", str(config)], stdout=text, stderr=text)
        try:
            wait_until(lambda: "pid " + str(daemon.pid) in status(), daemon, errors, 10)
            control("-D")
            control("-b", "8192")
            control("-a", "always,exit", "-F", "arch=b64", "-S", "execve,execveat", "-k", KEY)
            threads = kernel_threads("kauditd")
            before, begun = machine_busy(), process_seconds(daemon.pid, *threads)
            load.run("a")
            time.sleep(2)  # the daemon writes what it has
            result.own = process_seconds(daemon.pid, *threads) - begun
            result.machine = machine_busy() - before
            result.lost = re.search(r"lost (\d+)", status()).group(1)
        finally:
            subprocess.run(["auditctl", "-D"], capture_output=True, check=False)
            daemon.terminate()
            daemon.wait(10)
    result.told = sum("type=EXECVE" in line and 'a1="a-' in line
                      for line in log.read_text(errors="replace").splitlines())
    return result


def status():
    return subprocess.run(["auditctl", "-s"], capture_output=True, text=True, check=False).stdout


def control(*arguments):
    done = subprocess.run(["auditctl", *arguments], capture_output=True, text=True, check=False)
    if done.returncode != 0:
        raise CannotRun(f"auditctl {arguments[0]}: {(done.stderr or done.stdout).strip()}")


def execsnoop(load, folder, _args):
    result = Result("execsnoop")
    if not shutil.which("bpftrace") or not os.path.exists(EXECSNOOP):
        raise CannotRun("bpftrace is not installed (--install gets it)")
    output, errors = folder / "output.bpftrace", folder / "errors"
    with open(output, "w") as text, open(errors, "w") as said:
        tool = subprocess.Popen(["bpftrace", EXECSNOOP], stdout=text, stderr=said)
        wait_until(lambda: "TIME(ms)" in output.read_text(errors="replace"), tool, errors, 30)
        before, begun = machine_busy(), process_seconds(tool.pid)
        load.run("b")
        time.sleep(2)
        result.own = process_seconds(tool.pid) - begun
        result.machine = machine_busy() - before
        tool.send_signal(signal.SIGINT)
        tool.wait(20)
    result.told = sum(" b-" in line for line in output.read_text(errors="replace").splitlines())
    lost = re.search(r"Lost (\d+) events", errors.read_text() + output.read_text(errors="replace"))
    result.lost = lost.group(1) if lost else "0"
    return result


def sysdig(load, folder, _args):
    result = Result("sysdig")
    if not shutil.which("sysdig"):
        raise CannotRun("sysdig is not installed (--install gets it)")
    usage = subprocess.run(["sysdig", "--help"], capture_output=True, text=True, check=False).stdout
    mode = ["--modern-bpf"] if "--modern-bpf" in usage else []
    output, errors = folder / "output.sysdig", folder / "errors"
    with open(output, "w") as text, open(errors, "w") as said:
        tool = subprocess.Popen(["sysdig", *mode, "-v", "-p", "%proc.exepath %proc.args",
                                 "evt.type in (execve, execveat) and evt.dir=<"],
                                stdout=text, stderr=said)
        time.sleep(5)  # it says nothing when it is ready
        if tool.poll() is not None:
            raise CannotRun("; ".join(errors.read_text().strip().splitlines()[:2]))
        before, begun = machine_busy(), process_seconds(tool.pid)
        load.run("d")
        time.sleep(2)
        result.own = process_seconds(tool.pid) - begun
        result.machine = machine_busy() - before
        tool.send_signal(signal.SIGINT)
        tool.wait(20)
    result.told = sum(" d-" in line for line in output.read_text(errors="replace").splitlines())
    drops = re.search(r"Drops:(\d+)", errors.read_text() + output.read_text(errors="replace"))
    result.lost = drops.group(1) if drops else "?"
    return result


def install():
    environment = {**os.environ, "DEBIAN_FRONTEND": "noninteractive"}
    for package in PACKAGES:
        done = subprocess.run(["apt-get", "install", "-y", "--no-install-recommends", package],
                              env=environment, capture_output=True, text=True, check=False)
        if done.returncode != 0:
            print(f"{package} cannot be installed: {done.stderr.strip().splitlines()[-1:]}")


def show(results, load):
    base = next(each for each in results if each.name == "no tool").machine
    ours = next((each for each in results if each.name == "tevmon-host"), None)
    print(f"{'':<12} {'own s':>8} {'machine s':>10} {'reported':>8} {'of':>8} {'lost':>8} {'ratio':>7}")
    for each in results:
        ratio = f"{ours.own / each.own:.2f}" if ours and each.own else "-"
        above = each.machine - base if each.name != "no tool" else each.machine
        print(f"{each.name:<12} {each.own:>8.2f} {above:>10.2f} {each.told:>8} {load.count:>8} "
              f"{each.lost:>8} {ratio:>7}")


def compare(load, folder, args):
    """The processor seconds of two hosts in turn, and the ratio of each pair."""
    ratios = []
    for number in range(args.pairs):
        own = {}
        # Which one comes first changes: what a run leaves warm helps the next.
        for host in (args.host, args.against)[::1 if number % 2 == 0 else -1]:
            place = folder / f"{number}-{len(own)}"
            place.mkdir()
            result = tevmon(load, place, argparse.Namespace(host=host))
            own[host] = result.own
            print(f"{host}: {result.own:.2f} s, {result.told} of {load.count} reported, {result.lost} lost",
                  flush=True)
        ratios.append(own[args.host] / own[args.against])
    print(f"ratios {', '.join(f'{ratio:.3f}' for ratio in ratios)}; median {statistics.median(ratios):.3f}")
    return 0


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("host")
    parser.add_argument("--seconds", type=int, default=20)
    parser.add_argument("--rate", type=int, default=1000)
    parser.add_argument("--bytes", type=int, default=0, help="size of the program, if it is larger")
    parser.add_argument("--install", action="store_true")
    parser.add_argument("--against", metavar="HOST", type=os.path.abspath)
    parser.add_argument("--pairs", type=int, default=5)
    args = parser.parse_args()
    args.host = os.path.abspath(args.host)
    livehost.check_machine()
    if args.install:
        install()
    results = []
    with tempfile.TemporaryDirectory(prefix="tevmon-cost-") as name:
        load = Load(pathlib.Path(name), args)
        if args.against:
            return compare(load, pathlib.Path(name), args)
        for tool in (without_tool, tevmon, auditd, execsnoop, sysdig):
            folder = pathlib.Path(name) / tool.__name__
            folder.mkdir()
            try:
                results.append(tool(load, folder, args))
            except (CannotRun, OSError, subprocess.SubprocessError) as error:
                print(f"{tool.__name__} cannot run here: {error}")
    show(results, load)
    return 0 if len(results) >= 2 else 1


if __name__ == "__main__":
    sys.exit(main())
