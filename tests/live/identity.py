#!/usr/bin/env python3
"""Lets another file take the place of a program that was started, and looks for a borrowed verdict.

Usage: identity.py PART HOST [--runs N]

Parts that are tests; exit code 0: so it was, 1: not, 77: this machine does not allow it:
  reused   while the host stands still a program starts, ends and is removed, and a file that gets its
           inode number is put under its name: the launch must not be reported under that name
  context  a program of another user starts in a control group that has a container's name: its record names
           user, group and container
  overlay  over a directory lies an overlay that only another mount namespace has; a program of the
           upper directory has the inode number of the file that everybody else sees under its name
"""

import argparse
import ctypes
import os
import pathlib
import shutil
import signal
import subprocess
import sys
import tempfile

import launch_kinds
import livehost

MOST_TRIES = 400  # files made until one has the number; file systems give away freed ones soon
USER = 65534
BELOW_FIRST = 10  # numbers that the other tmpfs needs for its directories
MOST_NUMBER = 20000  # as many files are made to reach an inode number on a tmpfs


def make_with_inode(path, inode, source):
    """Puts a copy of source under path with that inode number; False when it does not come."""
    kept = []
    for number in range(MOST_TRIES):
        trial = path.with_name(f"{path.name}.{number}")
        trial.touch()
        if trial.stat().st_ino == inode:
            shutil.copy(source, trial)
            trial.rename(path)
            break
        kept.append(trial)
    for trial in kept:
        trial.unlink()
    return path.exists()


def reported(host, pid, path):
    """How the launch of that process is reported: launch, unresolved, nothing, or borrowed, under path."""
    for record in host.of("launch", "unresolved"):
        if record["pid"] == pid:
            borrowed = record["event"] == "launch" and record["path"] == str(path) and record["origin"] != "held"
            return "borrowed" if borrowed else record["event"]
    return "nothing"


def end(host, folder):
    """Waits until the host has reported every launch before."""
    marker = folder / "marker"
    shutil.copy("/bin/true", marker)
    subprocess.run([str(marker)], check=True)
    if not host.wait_for(lambda r: r["event"] == "launch" and r["path"] == str(marker)):
        sys.exit(f"the last launch was never reported: {host.said()}")


def reused(args, folder):
    tiny = livehost.build_tiny(folder)
    host = livehost.Host(args.host, folder)
    tried, kept = [], 0
    for number in range(args.runs):
        path = folder / f"program{number}"
        shutil.copy(tiny, path)
        inode = path.stat().st_ino
        os.kill(host.process.pid, signal.SIGSTOP)
        try:
            pid = os.posix_spawn(path, [str(path)], {})
            os.waitpid(pid, 0)
            path.unlink()
            # What waits in the kernel for the host keeps the number: then nobody else gets it.
            if not make_with_inode(path, inode, "/bin/true"):
                shutil.copy("/bin/true", path)
                kept += 1
        finally:
            os.kill(host.process.pid, signal.SIGCONT)
        tried.append((pid, path))
    print(f"{kept} of {args.runs} inode numbers were kept from others")
    return judge(host, folder, tried)


def reach_inode(path, inode):
    """Makes files until one has that number; it is called path. False when it does not come."""
    for number in range(MOST_NUMBER):
        trial = path.with_name(f"trial{number}")
        trial.touch()
        if trial.stat().st_ino == inode:
            trial.rename(path)
            return True
        trial.unlink()
    return False


def go_below_overlay(place, space, tiny, name):
    """Becomes the program, in a mount namespace of its own; what stands against it, in a text."""
    launch_kinds.own_mounts()
    launch_kinds.mount("tmpfs", str(space), 0, "tmpfs")
    (space / "upper").mkdir()
    (space / "room").mkdir()
    inode = (place / name).stat().st_ino
    if not reach_inode(space / "upper" / name, inode):
        return f"inode number {inode} is not reached"
    shutil.copy(tiny, space / "upper" / name)
    options = f"lowerdir={place},upperdir={space}/upper,workdir={space}/room"
    if launch_kinds.LIBC.mount(b"overlay", os.fsencode(str(place)), b"overlay", 0, os.fsencode(options)) != 0:
        return f"no overlay here: {os.strerror(ctypes.get_errno())}"
    os.execv(place / name, [str(place / name)])
    return ""


def start_below_overlay(*names):
    """Its process number, when it has ended."""
    read, write = os.pipe()
    child = os.fork()
    if child == 0:
        try:
            os.write(write, go_below_overlay(*names).encode())
        except OSError as error:
            os.write(write, str(error).encode())
        os._exit(1)
    os.close(write)
    with os.fdopen(read) as said:
        reason = said.read()
    os.waitpid(child, 0)
    if reason:
        livehost.skip(reason)
    return child


def overlay(args, folder):
    if not launch_kinds.can_own_mounts():
        livehost.skip("the root here is no mount of its own")
    tiny = livehost.build_tiny(folder)
    # The place is one of the host's namespace, with numbers that begin anew.
    launch_kinds.own_mounts()
    place, space = folder / "place", folder / "space"
    for directory in (place, space):
        directory.mkdir()
    launch_kinds.mount("tmpfs", str(place), 0, "tmpfs")
    try:
        for number in range(BELOW_FIRST):
            (place / f"first{number}").touch()
        host = livehost.Host(args.host, folder)
        tried = []
        for number in range(args.runs):
            name = f"program{number}"
            shutil.copy("/bin/true", place / name)
            tried.append((start_below_overlay(place, space, tiny, name), place / name))
        return judge(host, folder, tried)
    finally:
        subprocess.run(["umount", "--lazy", str(place)], check=True)


def context(args, folder):
    if not launch_kinds.can_own_mounts():
        livehost.skip("the root here is no mount of its own")
    launch_kinds.own_mounts()
    groups = folder / "groups"
    groups.mkdir()
    try:
        launch_kinds.mount("none", str(groups), 0, "cgroup2")
    except OSError as error:
        livehost.skip(f"needs to mount cgroup2: {error}")
    container = os.urandom(32).hex()
    group = groups / f"docker-{container}.scope"
    try:
        group.mkdir()
        return launch_in(group, container, args, folder)
    finally:
        if group.exists():
            group.rmdir()
        subprocess.run(["umount", "--lazy", str(groups)], check=True)


def launch_in(group, container, args, folder):
    program = folder / "program"
    shutil.copy("/bin/true", program)

    def enter():
        (group / "cgroup.procs").write_text(str(os.getpid()))
        os.setresuid(USER, USER, USER)

    host = livehost.Host(args.host, folder)
    for _ in range(args.runs):
        subprocess.run([str(program)], preexec_fn=enter, check=True)
    end(host, folder)
    code = host.stop()
    launches = [record for record in host.of("launch") if record["path"] == str(program)]
    wanted = (USER, f"/{group.name}", container)
    right = sum((record["uid"], record["cgroup"], record["container"]) == wanted for record in launches)
    print(f"{args.runs} launches, {len(launches)} reported, {right} with user, group and container; exit code {code}")
    return 0 if right == len(launches) == args.runs and code == 0 else 1


def judge(host, folder, tried):
    end(host, folder)
    code = host.stop()
    fates = [reported(host, *each) for each in tried]
    counts = {word: fates.count(word) for word in sorted(set(fates))}
    unexplained = host.balance()["unexplained"]
    print(f"{len(tried)} tries: {counts}; unexplained {unexplained}; exit code {code}")
    return 1 if counts.get("borrowed") or counts.get("nothing") or unexplained or code else 0


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("part", choices=("reused", "overlay", "context"))
    parser.add_argument("host")
    parser.add_argument("--runs", type=int, default=20)
    args = parser.parse_args()
    livehost.check_machine()
    # On a disk: what a tmpfs numbers it numbers once.
    with tempfile.TemporaryDirectory(prefix="tevmon-identity-", dir="/var/tmp") as folder:
        folder = pathlib.Path(folder)
        folder.chmod(0o755)
        sys.exit({"reused": reused, "overlay": overlay, "context": context}[args.part](args, folder))


if __name__ == "__main__":
    main()
