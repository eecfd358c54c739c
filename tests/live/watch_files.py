#!/usr/bin/env python3
"""Works on files in a known number and in many ways while tevmon-host watches, and compares.

Usage: watch_files.py PART HOST [--runs N] [--sensor ebpf|connector-fanotify|connector]

Parts that are tests; exit code 0: so it was, 1: not, 77: this machine does not allow it:
  programs   N each of touch, mv and rm in a watched place, N / 3 shells that write a file and run rm in
             its place, and N / 3 whose subshell writes one: every operation reported once, in its order,
             with the program that did it. Then files of a shell that stays. With --sensor that of launches:
             a connector reports the same program or none, never another, and knows the shell after a while.
  storm      one process makes, renames and removes N files, every operation is reported: none may be
             missing or under a wrong path. Prints the sensor's time for an event.
  overflow   while the host is stopped more happens than the kernel's queue holds: that is announced, and
             afterwards everything is reported again.
  kinds      links, directories, pipes, writes without a closure.
  overlay    in a mount namespace of its own: a watched place on overlayfs, which can be watched by its
             directories only, and on one that has handles of files, which can be watched whole; a file
             system mounted later, which must not be kept from going. One that the kernel lets nobody
             watch is left out.
  idle       nothing happens for N / 100 seconds: the host reports nothing that it did itself.

The files in /etc/cron.d have a dot in their names, which cron leaves alone, and are removed.
"""

import argparse
import collections
import os
import pathlib
import subprocess
import sys
import tempfile

import livehost

PLACE = pathlib.Path("/etc/cron.d")
MARK = f"tevmon.{os.getpid()}."
MOST_OF_STEADY_SHELL = 100  # files, each reported before the next
OWN_NAMESPACE = "TEVMON_LIVE_NAMESPACE"
# fanotify names files by their handles. Before Linux 6.6 an overlayfs has these only when it is mounted
# for export over NFS; since then it can always be watched by its directories, and so mounted whole.
OVERLAYS = {"plain": "", "with handles": ",index=on,nfs_export=on"}


def check_machine(sensor):
    livehost.check_machine(sensor)
    if not PLACE.is_dir() or not os.access(PLACE, os.W_OK):
        livehost.skip(f"needs the directory {PLACE}")
    if tuple(int(part) for part in os.uname().release.split(".")[:2]) < (5, 17):
        livehost.skip("needs Linux 5.17, for renames that are reported as one")


def clean():
    for path in PLACE.glob(MARK + "*"):
        if path.is_dir() and not path.is_symlink():
            for below in path.iterdir():
                below.unlink()
            path.rmdir()
        else:
            path.unlink()


def reported(host, under=PLACE / MARK):
    """(operation, path, program's last name, process) of what was reported below a path."""
    return [(record["op"], record["path"], record["program"].rpartition("/")[2], record["pid"])
            for record in host.of("file") if record["path"].startswith(str(under))
            and not record["path"].startswith(f"{PLACE}/{MARK}end")]


def mark_end(host):
    """Waits until the host has reported everything before."""
    mark_end.number += 1
    path = f"{PLACE}/{MARK}end{mark_end.number}"
    pathlib.Path(path).touch()
    os.unlink(path)
    if not host.wait_for(lambda r: r["event"] == "file" and r["path"] == path):
        host.stop()
        sys.exit(f"the last file was never reported; {host.balance()['files']}")


mark_end.number = 0


def finish(host, code, wrong, text):
    files = host.balance()["files"]
    if host.balance()["unexplained"]:
        wrong.append(f"unexplained: {host.balance()['unexplained']}")
    if code:
        wrong.append(f"exit code {code}")
    print("\n".join(wrong[:20]))
    print(f"{text}; {len(wrong)} wrong; captured {files['captured']}, reported {files['reported']}, unwatched "
          f"{files['unwatched']}, unresolved {files['unresolved']}, own {files['own']}, without "
          f"program {files['no_program']}, overflows {files['overflows']}"
          + (f", {files['capture_us'] / files['events']:.2f} us an event"
             if files.get("events") else ""))
    return 1 if wrong else 0


def started(*argv):
    """Runs it; its process number."""
    pid = os.posix_spawn(argv[0], argv, {})
    os.waitpid(pid, 0)
    return pid


def programs(args, folder):
    host = livehost.Host(args.host, folder, sensor=args.sensor)
    expected = []
    for number in range(args.runs):
        old, new = f"{PLACE}/{MARK}a{number}", f"{PLACE}/{MARK}b{number}"
        pid = started("/usr/bin/touch", old)
        expected += [("create", old, "touch", pid), ("write", old, "touch", pid)]
        pid = started("/usr/bin/mv", old, new)
        expected += [("rename", old, "mv", pid), ("create", new, "mv", pid)]
        expected.append(("remove", new, "rm", started("/usr/bin/rm", new)))
    for number in range(args.runs // 3):
        path = f"{PLACE}/{MARK}c{number}"
        pid = started("/bin/sh", "-c", f": > {path}; exec rm {path}")
        expected += [("create", path, "dash", pid), ("write", path, "dash", pid),
                     ("remove", path, "rm", pid)]
    shells = {}  # path -> the shell whose copy, a process of its own, makes the file
    for number in range(args.runs // 3):
        path = f"{PLACE}/{MARK}d{number}"
        shells[path] = started("/bin/sh", "-c", f"( : > {path} ); :")
        expected += [("create", path, "dash", "a copy"), ("write", path, "dash", "a copy")]
    steady, known = steady_shell(host)
    expected += steady
    mark_end(host)
    code = host.stop()
    seen = [(operation, path, who, "a copy" if pid != shells.get(path, pid) else pid)
            for operation, path, who, pid in reported(host)]
    text = f"{len(expected)} operations of programs, {len(steady)} of them of a shell that stays"
    if args.sensor != "ebpf":
        unknown = sum(not who for _, _, who, _ in seen)
        expected = without_unknown(seen, expected)
        text += f", {unknown} reported without a program"
    wrong = differences(seen, expected) + ([] if known else ["the shell that stays was never known"])
    return finish(host, code, wrong, text)


def steady_shell(host):
    """Has a shell make files, one after the other, until they are reported as its own; one that stays is known soon."""
    shell = subprocess.Popen(["/bin/sh"], stdin=subprocess.PIPE, text=True)
    expected = []
    known = False
    for number in range(MOST_OF_STEADY_SHELL):
        path = f"{PLACE}/{MARK}e{number}"
        expected += [(operation, path, "dash", shell.pid) for operation in ("create", "write")]
        shell.stdin.write(f": > {path}\n")
        shell.stdin.flush()
        if not host.wait_for(lambda r: r["event"] == "file" and (r["op"], r["path"]) == ("write", path)):
            break
        known = host.records[-1]["program"].endswith("/dash")
        if known:
            break
    shell.communicate()
    return expected, known


def without_unknown(seen, expected):
    """What is expected of a sensor that does not know everybody: the same, or nobody."""
    programs_of = collections.defaultdict(list)
    for operation, path, who, _ in seen:
        programs_of[operation, path].append(who)
    return [(operation, path, who if who in programs_of[operation, path] else "", pid)
            for operation, path, who, pid in expected]


def differences(seen, expected):
    """What is wrong, as lines: by path and order."""
    def by_path(operations):
        found = collections.defaultdict(list)
        for operation in operations:
            found[operation[1]].append((operation[0], *operation[2:]))
        return found

    seen, expected = by_path(seen), by_path(expected)
    return [f"{path}: reported {seen.get(path)}, expected {expected.get(path)}"
            for path in sorted(seen.keys() | expected.keys())
            if seen.get(path) != expected.get(path)]


def storm(args, folder):
    host = livehost.Host(args.host, folder, "--all-operations")
    work = folder / "work"
    work.mkdir()
    program = livehost.build(folder, "filestorm")
    subprocess.run([program, str(work), str(args.runs)], check=True)
    mark_end(host)
    code = host.stop()
    counts = collections.Counter()
    wrong = []
    expected = {"create": "a", "write": "a", "rename": "a", "remove": "b"}
    for operation, path, who, _ in reported(host, f"{work}/"):
        name = path.rpartition("/")[2]
        counts[operation, name] += 1
        if name[0] != expected[operation] or who != "filestorm":
            wrong.append(f"{operation} {path} by {who}")
    for operation, letter in expected.items():
        wrong += [f"{operation} {letter}{number}: reported {counts[operation, f'{letter}{number}']} times"
                  for number in range(args.runs) if counts[operation, f"{letter}{number}"] != 1]
    return finish(host, code, wrong, f"{4 * args.runs} operations of one process")


def overflow(args, folder):
    host = livehost.Host(args.host, folder)
    host.process.send_signal(livehost.signal.SIGSTOP)
    most = int(pathlib.Path("/proc/sys/fs/fanotify/max_queued_events").read_text())
    work = folder / "work"
    work.mkdir()
    program = livehost.build(folder, "filestorm")
    subprocess.run([program, str(work), str(most)], check=True)
    host.process.send_signal(livehost.signal.SIGCONT)
    if not host.wait_for(lambda record: record["event"] == "overflow"):
        sys.exit("no loss was announced")
    path = f"{PLACE}/{MARK}after"
    pid = started("/usr/bin/touch", path)
    mark_end(host)
    code = host.stop()
    wrong = differences(reported(host), [("create", path, "touch", pid), ("write", path, "touch", pid)])
    announced = sum(record["times"] for record in host.of("overflow"))
    if not announced == host.balance()["files"]["overflows"] > 0:
        wrong.append(f"{announced} overflows announced")
    return finish(host, code, wrong, f"a queue of {most} filled")


def kinds(args, folder):
    host = livehost.Host(args.host, folder)
    me, name = os.getpid(), pathlib.Path(sys.executable).resolve().name
    expected = []

    def act(path, *operations):
        expected.extend((operation, str(path), name, me) for operation in operations)

    def at(suffix):
        return PLACE / (MARK + suffix)

    outside = folder / "outside"
    outside.write_text("x")
    os.link(outside, at("hard"))
    act(at("hard"), "create")
    at("soft").symlink_to(outside)
    act(at("soft"), "create")
    os.rename(outside, at("moved"))
    act(at("moved"), "create")
    os.rename(at("moved"), folder / "back")
    act(at("moved"), "rename")
    at("dir").mkdir()
    act(at("dir"), "create")
    (at("dir") / "job").write_text("x")
    act(at("dir") / "job", "create", "write")
    os.rename(at("dir"), at("other"))
    act(at("dir"), "rename")
    act(at("other"), "create")
    (at("other") / "late").write_text("x")
    act(at("other") / "late", "create", "write")
    os.mkfifo(folder / "pipe")
    act(folder / "pipe", "create")
    (folder / "link").symlink_to("pipe")
    act(folder / "link", "create")
    with open(at("open"), "wb", buffering=0) as file:
        act(at("open"), "create")
        mark_end(host)
        file.write(b"x")  # reported before it is closed
        act(at("open"), "write")
        mark_end(host)
        act(at("open"), "write")
    mark_end(host)
    code = host.stop()
    seen = reported(host) + reported(host, folder)
    return finish(host, code, differences(seen, expected), f"{len(expected)} operations of many kinds")


def idle(args, folder):
    host = livehost.Host(args.host, folder, "--all-operations")
    mark_end(host)
    host.process.send_signal(livehost.signal.SIGUSR1)
    host.wait_for(lambda record: record["event"] == "balance")
    before = host.balance()["files"]["own"]
    _ = host.wait_for(lambda record: False, args.runs / 100)
    code = host.stop()
    wrong = [f"{operation} reported" for operation in reported(host, folder / "state")]
    if host.balance()["files"]["own"] != before:
        wrong.append(f"{host.balance()['files']['own'] - before} operations of the host's own")
    return finish(host, code, wrong,
                  f"{args.runs / 100:.0f} s with nothing to do")


def mount(kind, point, *options):
    """What mount says against it; "" when it is mounted."""
    point.mkdir(parents=True, exist_ok=True)
    done = subprocess.run(["mount", "-t", kind, *options, "tevmon-live", str(point)],
                          stderr=subprocess.PIPE, text=True, errors="replace")
    return "" if done.returncode == 0 else done.stderr.strip() or f"mount ends with {done.returncode}"


def mount_tmpfs(point):
    said = mount("tmpfs", point)
    if said:
        livehost.skip(f"needs to mount tmpfs: {said}")


def into_own_namespace():
    """Begins anew where mounts are nobody else's."""
    if OWN_NAMESPACE not in os.environ:
        os.environ[OWN_NAMESPACE] = "1"
        os.execvp("unshare", ["unshare", "--mount", "--propagation", "private", sys.executable, "-B",
                              *sys.argv])


def overlay(args, folder):
    codes, refusals = [], []
    for name, options in OVERLAYS.items():
        work = folder / name
        mount_tmpfs(work / "layers")
        try:
            refusal = (mount_overlay(PLACE, PLACE, work / "layers" / "place", options)
                       or livehost.refused_mark(PLACE))
            if refusal:
                refusals.append(f"overlayfs {name} cannot be watched here: {refusal}")
            else:
                codes.append(on_overlay(args, work, name))
        finally:
            for point in (PLACE, work / "beside", work / "layers", work / "later"):
                subprocess.run(["umount", "--lazy", str(point)], stderr=subprocess.DEVNULL)
    if not codes:
        livehost.skip("; ".join(refusals))
    for refusal in refusals:
        print(f"left out: {refusal}")
    return max(codes)


def mount_overlay(point, lower, layers, options):
    """layers: where its directories are made. Returns as mount() does."""
    for name in ("upper", "inner"):
        (layers / name).mkdir(parents=True)
    return mount("overlay", point, "-o",
                 f"lowerdir={lower},upperdir={layers}/upper,workdir={layers}/inner{options}")


def make_pipe(path):
    return ("create", str(path), "mkfifo", started("/usr/bin/mkfifo", str(path)))


def on_overlay(args, folder, name):
    whole = not livehost.refused_mark(PLACE, whole=True)
    beside, later = folder / "beside", folder / "later"
    if whole:  # another one, in no watched place, whose layers are on the same file system
        layers = folder / "layers"
        (layers / "lower").mkdir()
        said = mount_overlay(beside, layers / "lower", layers / "beside", OVERLAYS[name])
        if said:
            sys.exit(f"one overlayfs could be mounted and another one not: {said}")
    host = livehost.Host(args.host, folder, "--all-filesystems")
    old, new = f"{PLACE}/{MARK}a", f"{PLACE}/{MARK}b"
    pid = started("/usr/bin/touch", old)
    expected = [("create", old, "touch", pid), ("write", old, "touch", pid)]
    pid = started("/usr/bin/mv", old, new)
    expected += [("rename", old, "mv", pid), ("create", new, "mv", pid),
                 ("remove", new, "rm", started("/usr/bin/rm", new))]
    if whole:
        expected.append(make_pipe(beside / "pipe"))
    mark_end(host)
    mount_tmpfs(later)
    mark_end(host)  # the host has read the mounts by now
    expected.append(make_pipe(later / "pipe"))
    mark_end(host)
    wrong = [] if subprocess.run(["umount", str(later)]).returncode == 0 else ["umount fails"]
    mark_end(host)
    code = host.stop()
    wrong += overlay_notices(host, whole)
    wrong += [f"{record['path']}: reported to be on {record['fs']}" for record in host.of("file")
              if record["path"].startswith((f"{PLACE}/{MARK}", f"{beside}/"))
              and record["fs"] != "overlay"]
    wrong += differences(reported(host) + reported(host, beside) + reported(host, later), expected)
    return finish(host, code, wrong, f"overlayfs {name} ({'whole' if whole else 'its directories'}) "
                                     "and a file system mounted later")


def overlay_notices(host, whole):
    """What is wrong with them."""
    notices = [record["text"] for record in host.of("notice")]
    wanted = {"pipes: listed directories only": not whole, "is unmounted and watched no more": True}
    return [f"{'nothing says' if is_wanted else 'wrongly said'}: {words}"
            for words, is_wanted in wanted.items()
            if is_wanted != any(words in notice for notice in notices)]


PARTS = {"overlay": overlay, "programs": programs, "storm": storm, "overflow": overflow, "kinds": kinds, "idle": idle}


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("part", choices=PARTS)
    parser.add_argument("host")
    parser.add_argument("--runs", type=int, default=300)
    parser.add_argument("--sensor", default="ebpf",
                        choices=["ebpf", "connector-fanotify", "connector"])
    args = parser.parse_args()
    check_machine(args.sensor)
    if args.part == "overlay":
        into_own_namespace()
    try:
        with tempfile.TemporaryDirectory(prefix="tevmon-live-") as name:
            return PARTS[args.part](args, pathlib.Path(name))
    finally:
        clean()


if __name__ == "__main__":
    sys.exit(main())
