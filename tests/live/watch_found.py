#!/usr/bin/env python3
"""Changes watched places so that no event names the file there, and looks whether tevmon-host reports it.

Usage: watch_found.py PART HOST

Parts that are tests; exit code 0: so it was, 1: not, 77: this machine does not allow it:
  mounts     in a mount namespace of its own: a directory mounted over a watched place and taken off
             again, a file mounted over one in it. What is there instead is found, without a program, and
             what happens there later is reported.
  lost       while the host is stopped and the kernel's queue full, files in a watched place are made,
             written and removed: that is found afterwards.
  links      a file in a watched place has further names elsewhere: what is written to it under these is
             reported under the watched one, before the closing as well.
  pipes      while the host is stopped pipes are renamed and removed: the renamed one is reported as a pipe,
             the other one counted as gone.
  nameless   files are made in a watched place without a name, and one of them is given one: no other is
             reported.

The files in /etc/cron.d have a dot in their names, which cron leaves alone, and are removed.
"""

import argparse
import itertools
import os
import pathlib
import subprocess
import sys
import tempfile

import livehost
import watch_files
from watch_files import MARK, PLACE


def found(host, since=0):
    """(operation, name) of what was found in the watched place, sorted; none of it has a program."""
    records = [record for record in host.of("file") if record["found"]][since:]
    assert all(record["program"] == "" and record["pid"] == 0 for record in records), records
    return sorted((record["op"], record["path"].removeprefix(f"{PLACE}/{MARK}")) for record in records
                  if record["path"].startswith(f"{PLACE}/{MARK}"))


def wait_for_found(host, operation, name):
    path = f"{PLACE}/{MARK}{name}"
    if not host.wait_for(lambda r: r["event"] == "file" and r["found"] and (r["op"], r["path"]) == (operation, path)):
        host.stop()
        sys.exit(f"{operation} of {path} was not found; found: {found(host)}")


def differ(what, seen, expected):
    return [] if seen == expected else [f"{what}: found {seen}, expected {expected}"]


def finish(host, code, wrong, expected):
    files = host.balance()["files"]
    if files["found"] != expected:
        wrong.append(f"{files['found']} counted as found, expected {expected}")
    return watch_files.finish(host, code, wrong, f"{expected} found")


def run_mount(*argv):
    subprocess.run(["mount", *map(str, argv)], check=True)


def mounts(args, folder):
    system = folder / "system"
    watch_files.mount_tmpfs(system)
    for name in ("place", "other"):
        (system / name).mkdir()
        (system / name / (MARK + "changed")).write_text(name)
    (system / "place" / (MARK + "kept")).write_text("x")
    os.link(system / "place" / (MARK + "kept"), system / "other" / (MARK + "kept"))
    (system / "place" / (MARK + "gone")).write_text("x")
    (system / "other" / (MARK + "new")).write_text("x")
    run_mount("--bind", system / "place", PLACE)
    host = livehost.Host(args.host, folder)
    watch_files.mark_end(host)

    run_mount("--bind", system / "other", PLACE)
    wait_for_found(host, "create", "new")
    wrong = differ("a directory over the place", found(host),
                   [("create", "changed"), ("create", "new"), ("remove", "gone")])
    path = f"{PLACE}/{MARK}later"
    pid = watch_files.started("/usr/bin/touch", path)
    watch_files.mark_end(host)
    later = [("create", path, "touch", pid), ("write", path, "touch", pid)]
    wrong += watch_files.differences([each for each in watch_files.reported(host) if each[1] == path], later)

    run_mount("--bind", system / "place" / (MARK + "gone"), PLACE / (MARK + "kept"))
    wait_for_found(host, "create", "kept")
    wrong += differ("a file over one of the place", found(host, 3), [("create", "kept")])

    subprocess.run(["umount", PLACE / (MARK + "kept")], check=True)
    subprocess.run(["umount", PLACE], check=True)
    wait_for_found(host, "remove", "new")
    watch_files.mark_end(host)
    code = host.stop()
    notices = [record["text"] for record in host.of("notice") if "watched places have changed" in record["text"]]
    if not notices or not all(str(PLACE) in notice for notice in notices):
        wrong.append(f"nothing says that the mounts have changed: {notices}")
    return finish(host, code, wrong, len([r for r in host.of("file") if r["found"]]))


def lost(args, folder):
    known, gone, new = (PLACE / (MARK + name) for name in ("known", "gone", "lost"))
    for path in (known, gone):
        path.write_text("x")
    host = livehost.Host(args.host, folder)
    host.process.send_signal(livehost.signal.SIGSTOP)
    most = int(pathlib.Path("/proc/sys/fs/fanotify/max_queued_events").read_text())
    work = folder / "work"
    work.mkdir()
    subprocess.run([livehost.build(folder, "filestorm"), str(work), str(most)], check=True)
    known.write_text("other")
    gone.unlink()
    new.write_text("x")
    host.process.send_signal(livehost.signal.SIGCONT)
    wait_for_found(host, "write", "known")
    code = host.stop()
    wrong = differ("after an overflow", found(host), [("create", "lost"), ("remove", "gone"), ("write", "known")])
    return finish(host, code, wrong, 3)


def skip_on_overlay():
    kind = subprocess.run(["stat", "-f", "-c", "%T", PLACE], stdout=subprocess.PIPE, text=True, check=True).stdout.strip()
    if kind == "overlayfs":
        livehost.skip(f"{PLACE} is on overlayfs, whose handles do not say which file they are of")


def links(args, folder):
    skip_on_overlay()
    # On the file system of the place, which that of folder need not be.
    with tempfile.TemporaryDirectory(prefix="tevmon-live-", dir=PLACE.parent) as name:
        return write_by_links(args, folder, pathlib.Path(name))


def write_by_links(args, folder, elsewhere):
    job, before, after = PLACE / (MARK + "job"), elsewhere / "before", elsewhere / "after"
    job.write_text("x")
    os.link(job, before)
    host = livehost.Host(args.host, folder)
    steps, taken = [], 0

    def step(what):
        nonlocal taken
        watch_files.mark_end(host)
        seen = [(record["op"], record["path"]) for record in host.of("file")
                if record["path"].startswith((f"{PLACE}/{MARK}job", f"{elsewhere}/"))]
        # A write and its closing are one operation or two.
        steps.append((what, [each for each, _ in itertools.groupby(seen[taken:])]))
        taken = len(seen)

    before.write_text("a")
    step("by a name from before the start")
    os.link(job, after)
    step("a further name")
    with open(after, "ab", buffering=0) as file:
        step("opened")
        file.write(b"b")
        step("written to and open")
    step("closed")
    os.unlink(before)
    os.unlink(job)
    step("removed")
    after.write_text("c")
    step("no name in the place any more")
    code = host.stop()
    write, remove = ("write", str(job)), ("remove", str(job))
    expected = [[write], [], [], [write], [write], [remove], []]
    wrong = [f"{what}: reported {seen}, expected {each}" for (what, seen), each in zip(steps, expected)
             if seen != each]
    return finish(host, code, wrong, 0)


def nameless(args, folder):
    skip_on_overlay()
    try:
        os.close(os.open(PLACE, os.O_TMPFILE | os.O_RDWR, 0o600))
    except OSError as error:
        livehost.skip(f"{PLACE} takes no file without a name: {error}")
    host = livehost.Host(args.host, folder, "--all-operations")
    job = PLACE / (MARK + "job")
    for name in (None, job):
        file = os.open(PLACE, os.O_TMPFILE | os.O_RDWR, 0o600)
        os.write(file, b"x")
        watch_files.mark_end(host)
        if name is not None and livehost.give_name(file, name):
            sys.exit("the file cannot be given a name")
        watch_files.mark_end(host)
        os.write(file, b"y")
        watch_files.mark_end(host)
        os.close(file)
    watch_files.mark_end(host)
    code = host.stop()
    seen = [(record["op"], record["path"]) for record in host.of("file")
            if record["path"].startswith((f"{PLACE}/{MARK}job", f"{PLACE}/#"))]
    # A write and its closing are one operation or two.
    seen = [each for each, _ in itertools.groupby(seen)]
    expected = [("create", str(job)), ("write", str(job))]
    return finish(host, code, [] if seen == expected else [f"reported {seen}, expected {expected}"], 0)


def pipes(args, folder):
    host = livehost.Host(args.host, folder)
    work = folder / "work"
    work.mkdir()
    watch_files.mark_end(host)
    host.process.send_signal(livehost.signal.SIGSTOP)
    for name in ("renamed", "removed"):
        os.mkfifo(work / name)
    os.rename(work / "renamed", work / "other")
    os.unlink(work / "removed")
    (work / "file").write_text("x")
    os.rename(work / "file", work / "moved")
    host.process.send_signal(livehost.signal.SIGCONT)
    watch_files.mark_end(host)
    code = host.stop()
    seen = [(record["op"], record["path"], record["pipe"]) for record in host.of("file")
            if record["path"].startswith(f"{work}/")]
    expected = [("create", str(work / "renamed"), True)]
    wrong = [] if seen == expected else [f"reported {seen}, expected {expected}"]
    if host.balance()["files"]["gone"] < 1:
        wrong.append("the pipe that was removed is not counted")
    return finish(host, code, wrong, 0)


PARTS = {"pipes": pipes, "mounts": mounts, "lost": lost, "links": links, "nameless": nameless}


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("part", choices=PARTS)
    parser.add_argument("host")
    args = parser.parse_args()
    watch_files.check_machine("ebpf")
    if args.part == "mounts":
        watch_files.into_own_namespace()
    try:
        with tempfile.TemporaryDirectory(prefix="tevmon-live-") as name:
            try:
                return PARTS[args.part](args, pathlib.Path(name))
            finally:
                if args.part == "mounts":
                    subprocess.run(["umount", "--lazy", f"{name}/system"], stderr=subprocess.DEVNULL)
    finally:
        watch_files.clean()


if __name__ == "__main__":
    sys.exit(main())
