#!/usr/bin/env python3
"""Brings files into a watched place and starts programs in ways that a watch might not see.

Usage: evasion.py HOST [--sensor S]     (root; works in /etc/cron.d under names of its own that cron
                                         does not read, and takes them away again)

One line for each way: what was reported to the module, and what the module did: it queried, or it
skipped the query because the program was known. A way that is not seen must stand in docs/limitations.md:
each has a phrase of that page, which is looked for. Exit code 0: every way is seen or named there;
1: one is not; 77: this machine does not allow the test.
"""

import argparse
import ctypes
import mmap
import os
import pathlib
import shutil
import stat
import subprocess
import sys
import tempfile

import launch_kinds
import livehost
from launch_kinds import LIBC, MS_BIND, can_own_mounts, mount, own_mounts

PLACE = pathlib.Path("/etc/cron.d")
LIMITATIONS = pathlib.Path(__file__).resolve().parents[2] / "docs" / "limitations.md"
AT_FDCWD, AT_SYMLINK_FOLLOW, RENAME_EXCHANGE, O_TMPFILE = -100, 0x400, 2, 0o20200000
TEXT = b"# nothing\n"


class LeftOut(Exception):
    """This machine cannot do it."""


class Way:
    def __init__(self, name, limit=None):
        self.name = name
        self.limit = limit  # words of docs/limitations.md, for when it is not seen
        self.paths = set()  # under any of which it counts as seen
        self.pid = None
        self.left_out = None


class FileWays:
    """Each method is one way to bring path into the place; its docstring is its name, and behind a
    bar the words of docs/limitations.md that name it where it is not seen."""

    def __init__(self, folder, helper):
        self.folder, self.helper = folder, helper

    def outside(self, path):
        file = self.folder / pathlib.Path(path).name
        file.write_bytes(TEXT)
        return file

    def before(self, path):
        """Files that are there before the watch begins, for the ways that change one."""
        if any(word in str(path) for word in ("truncate", "mapping", "handle", "exchange",
                                              "cover", "foreign", "upper")):
            path.write_bytes(TEXT * 100)

    def w01_write(self, path):
        """write a new file"""
        path.write_bytes(TEXT)

    def w02_rename(self, path):
        """rename from elsewhere"""
        near = PLACE.parent / path.name
        near.write_bytes(TEXT)
        os.rename(near, path)

    def w03_hard_link(self, path):
        """hard link"""
        near = PLACE.parent / path.name
        near.write_bytes(TEXT)
        os.link(near, path)
        near.unlink()

    def w04_symbolic_link(self, path):
        """symbolic link"""
        path.symlink_to(self.outside(path))

    def w05_move_across_devices(self, path):
        """move from another device"""
        with tempfile.NamedTemporaryFile(dir="/dev/shm", delete=False) as file:
            file.write(TEXT)
        shutil.move(file.name, path)

    def w06_copy_file_range(self, path):
        """copy_file_range"""
        with open(self.outside(path), "rb") as source, open(path, "wb") as target:
            os.copy_file_range(source.fileno(), target.fileno(), len(TEXT))

    def w07_sendfile(self, path):
        """sendfile"""
        with open(self.outside(path), "rb") as source, open(path, "wb") as target:
            os.sendfile(target.fileno(), source.fileno(), 0, len(TEXT))

    def w08_truncate(self, path):
        """truncate a file that is there"""
        os.truncate(path, 5)

    def w09_mapping(self, path):
        """write through a mapping"""
        with open(path, "r+b") as file, mmap.mmap(file.fileno(), 0) as mapped:
            mapped[0:5] = b"#mmap"

    def w10_tmpfile(self, path):
        """O_TMPFILE and linkat"""
        file = os.open(PLACE, O_TMPFILE | os.O_WRONLY, 0o644)
        os.write(file, TEXT)
        done = LIBC.linkat(AT_FDCWD, f"/proc/self/fd/{file}".encode(), AT_FDCWD, os.fsencode(path),
                           AT_SYMLINK_FOLLOW)
        os.close(file)
        if done != 0:
            raise LeftOut("no linkat of such a file here")

    def w11_bind_mount(self, path):
        """through a bind mount of the directory"""
        def act():
            mount(PLACE, self.directory("bound"), MS_BIND)
            (self.folder / "bound" / path.name).write_bytes(TEXT)
        self.in_namespace(act)

    def w12_mount_namespace(self, path):
        """in another mount namespace"""
        self.in_namespace(lambda: path.write_bytes(TEXT))

    def w13_overlay_above(self, path):
        """an overlay whose upper directory is the place"""
        self.above(lambda merged: (merged / path.name).write_bytes(TEXT))

    def w24_upper_file(self, path):
        """a file that is there, through such an overlay | through an overlayfs whose upper directory"""
        def overwrite(merged):
            with open(merged / path.name, "r+b") as file:
                file.write(b"#above")
        self.above(overwrite)

    def above(self, work_in):
        def act():
            lower, work = self.directory("lower"), PLACE.parent / "tevmon-evasion.work"
            work.mkdir()
            merged = self.directory("merged")
            self.overlay(merged, f"lowerdir={lower},upperdir={PLACE},workdir={work}")
            work_in(merged)
        try:
            self.in_namespace(act)
        finally:
            shutil.rmtree(PLACE.parent / "tevmon-evasion.work", ignore_errors=True)

    def w14_overlay_over(self, path):
        """an overlay only one namespace has | on file systems that only the other one has mounted"""
        def act():
            space = self.directory("space")
            mount("tmpfs", space, 0, "tmpfs")
            for name in ("upper", "room"):
                (space / name).mkdir()
            self.overlay(PLACE, f"lowerdir={PLACE},upperdir={space}/upper,workdir={space}/room")
            path.write_bytes(TEXT)
        self.in_namespace(act)

    def w15_cover(self, path):
        """a file bind-mounted over one that is there | mounted over a watched place"""
        self.in_namespace(lambda: mount(self.outside(path), path, MS_BIND))

    def w16_io_uring(self, path):
        """io_uring"""
        if subprocess.run([self.helper, str(path)], stderr=subprocess.DEVNULL).returncode == 3:
            raise LeftOut("no io_uring here")

    def w17_foreign_descriptor(self, path):
        """through /proc/PID/fd of another process"""
        with open(path, "rb") as file:
            subprocess.run(["/bin/sh", "-c", f"echo x > /proc/{os.getpid()}/fd/{file.fileno()}"],
                           check=True)

    def w18_handle(self, path):
        """open_by_handle_at"""
        class Handle(ctypes.Structure):
            _fields_ = [("size", ctypes.c_uint), ("kind", ctypes.c_int),
                        ("bytes", ctypes.c_ubyte * 128)]
        handle, number = Handle(size=128), ctypes.c_int()
        if LIBC.name_to_handle_at(AT_FDCWD, os.fsencode(path), ctypes.byref(handle),
                                  ctypes.byref(number), 0) != 0:
            raise LeftOut("no handles here")
        place = os.open(PLACE, os.O_RDONLY)
        file = LIBC.open_by_handle_at(place, ctypes.byref(handle), os.O_WRONLY)
        os.write(file, TEXT)
        os.close(file)
        os.close(place)

    def w19_linked_parent(self, path):
        """behind a symbolic link to the directory"""
        link = self.folder / "linked"
        link.symlink_to(PLACE)
        (link / path.name).write_bytes(TEXT)

    def w20_chroot(self, path):
        """below a root of its own"""
        def act():
            os.chroot(PLACE.parent)
            os.chdir("/")
            pathlib.Path("/", PLACE.name, path.name).write_bytes(TEXT)
        self.in_child(act)

    def w21_exchange(self, path):
        """exchanged with a file from elsewhere"""
        near = PLACE.parent / path.name
        near.write_bytes(TEXT)
        done = LIBC.renameat2(AT_FDCWD, os.fsencode(near), AT_FDCWD, os.fsencode(path),
                              RENAME_EXCHANGE)
        near.unlink()
        if done != 0:
            raise LeftOut("no exchange here")

    def w22_directory(self, path):
        """a directory moved in, with a file in it"""
        near = PLACE.parent / path.name
        near.mkdir()
        (near / "inside").write_bytes(TEXT)
        os.rename(near, path)

    def w23_mknod(self, path):
        """a named pipe by mknod"""
        os.mknod(path, stat.S_IFIFO | 0o644)

    def directory(self, name):
        made = self.folder / name
        made.mkdir(exist_ok=True)
        return made

    def overlay(self, target, options):
        if LIBC.mount(b"overlay", os.fsencode(target), b"overlay", 0, os.fsencode(options)) != 0:
            raise LeftOut(f"no overlay here: {os.strerror(ctypes.get_errno())}")

    def in_namespace(self, act):
        if not can_own_mounts():
            raise LeftOut("the root here is no mount of its own")

        def all_of_it():
            own_mounts()
            act()
        self.in_child(all_of_it)

    @staticmethod
    def in_child(act):
        read, write = os.pipe()
        child = os.fork()
        if child == 0:
            try:
                act()
            except Exception as error:  # reported to the parent, which judges it
                os.write(write, str(error).encode())
            os._exit(0)
        os.close(write)
        os.waitpid(child, 0)
        said = os.read(read, 4096).decode()
        os.close(read)
        if said:
            raise LeftOut(said)


def file_ways(folder, helper):
    """(way, function, path) of each method."""
    ways = FileWays(folder, helper)
    for name in sorted(dir(ways)):
        if name[0] == "w" and name[1:3].isdigit():
            function = getattr(ways, name)
            text, _, limit = function.__doc__.partition(" | ")
            path = PLACE / f"tevmon-evasion.{os.getpid()}.{name}"
            ways.before(path)
            way = Way(text, limit or None)
            way.paths = {str(path)}
            yield way, function, path


# Words of docs/limitations.md for launches that are reported under no path.
LAUNCH_LIMITS = {"memfd": "a short-lived memfd", "deleted": "a deleted or replaced file",
                 "mount namespace": "another mount namespace"}


def judge(way, records):
    """What was reported and what the module did, as words; and whether it was seen."""
    reported, module, paths = [], set(), set(way.paths)
    for record in records:
        event = record["event"]
        if event == "file" and record["path"] in way.paths:
            reported.append(record["op"] + (" (pipe)" if record["pipe"] else ""))
        elif event == "unresolved" and record["pid"] == way.pid:
            reported.append(event)
        elif event == "launch" and record["pid"] == way.pid:
            paths.add(record["path"])
            reported.append(("script " if record["script"] else "launch ") + record["path"])
        elif event in ("query", "skip") and record["path"] in paths:
            module.add("query" if event == "query" else f"skipped: {record['reason']}")
    seen = [word for word in reported if word != "unresolved"]
    return ", ".join(reported) or "nothing", ", ".join(sorted(module)) or "-", bool(seen)


def start_programs(kinds):
    kinds.names()
    kinds.arguments()
    kinds.scripts()
    kinds.descriptors()
    kinds.nameless()
    kinds.places()
    kinds.processes()
    kinds.loaders()
    ways = {}
    for start in kinds.starts:
        way = Way(f"start: {start.kind}", LAUNCH_LIMITS.get(start.kind))
        way.pid = start.pid
        ways.setdefault(way.name, way)
    return list(ways.values())


def run_files(ways):
    for way, function, path in ways:
        try:
            function(path)
        except (LeftOut, OSError) as error:
            way.left_out = str(error)


def clean_up():
    for folder in (PLACE, PLACE.parent):
        for path in folder.glob("tevmon-evasion.*"):
            shutil.rmtree(path) if path.is_dir() and not path.is_symlink() else path.unlink()


def report(ways, records):
    limitations = LIMITATIONS.read_text()
    unnamed = 0
    for way in ways:
        if way.left_out is not None:
            print(f"{way.name:<50} left out: {way.left_out}")
            continue
        reported, module, seen = judge(way, records)
        note = ""
        if not seen:
            named = way.limit is not None and way.limit in limitations
            unnamed += not named
            note = f"  NOT SEEN; {'named in' if named else 'MISSING in'} docs/limitations.md"
        print(f"{way.name:<50} reported: {reported:<44} module: {module}{note}")
    return unnamed


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("host")
    parser.add_argument("--sensor", default="ebpf")
    args = parser.parse_args()
    livehost.check_machine(args.sensor)
    made = not PLACE.exists()
    PLACE.mkdir(exist_ok=True)
    try:
        with tempfile.TemporaryDirectory(prefix="tevmon-live-") as name:
            folder = pathlib.Path(os.path.realpath(name))
            files = list(file_ways(folder, livehost.build(folder, "uring")))
            kinds = launch_kinds.Kinds(folder, livehost.build_tiny(folder))
            host = livehost.Host(args.host, folder, sensor=args.sensor)
            run_files(files)
            launches = start_programs(kinds)
            last = PLACE / f"tevmon-evasion.{os.getpid()}.last"
            last.write_bytes(TEXT)
            program = shutil.copy("/bin/true", folder / "last")
            subprocess.run([str(program)], check=True)
            for path in (last, program):  # messages of files and of launches have no common order
                host.judged(path)
            kinds.end()
            code = host.stop()
            ways = [way for way, _, _ in files] + launches
            unnamed = report(ways, host.records)
    finally:
        clean_up()
        if made:
            PLACE.rmdir()
    balance = host.balance()
    print(f"{len(ways)} ways, {unnamed} neither seen nor named in docs/limitations.md; unexplained "
          f"{balance['unexplained']}; exit code {code}")
    return 0 if unnamed == 0 and code == 0 else 1


if __name__ == "__main__":
    sys.exit(main())
