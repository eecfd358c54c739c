#!/usr/bin/env python3
"""Swaps, overwrites and removes what was started, and looks whose verdict it got.

Usage: verdicts.py HOST [--runs N] [--kinds KIND,...] [--place DIR]

Each program, script and program given to an ELF loader has the content of one on the bad list. It must be
shown as bad, once, whatever lies under its name by the time it is analysed, and no verdict on anything else
may stand under its name. Exit code 0: so it was, 1: not, 77: this machine does not allow it.
"""

import argparse
import hashlib
import pathlib
import shutil
import subprocess
import sys
import tempfile
import time

import livehost
from launch_kinds import MS_BIND, can_own_mounts, mount, own_mounts

GOOD = "/bin/true"
LOADER = "/lib64/ld-linux-x86-64.so.2"
SCRIPT = "#!/bin/sh\n# %s\nprintf x\nread line\n"
SOURCE = """#include <unistd.h>
static const char CONTENT[] = "bad %s";
int main(void) {
    char byte;
    return write(1, CONTENT, 1) != 1 || read(0, &byte, 1) != 0;
}
"""


def end(process):
    if process.returncode is None:
        process.communicate()


def put_good_over(path):
    shutil.copy(GOOD, path.with_name("good"))
    path.with_name("good").rename(path)


def renamed(host, name, path, process):
    put_good_over(path)


def overwritten(host, name, path, process):
    if not host.wait_for(lambda r: r["event"] == "bad_run" and r["file"] == str(path)):
        sys.exit(f"{path} was not shown while it ran: {host.said()}")
    end(process)
    shutil.copyfile(GOOD, path)


def overwritten_at_once(host, name, path, process):
    end(process)
    shutil.copyfile(GOOD, path)


def retargeted(host, name, path, process):
    name.with_name("next").symlink_to(GOOD)
    name.with_name("next").rename(name)


def directory(host, name, path, process):
    path.parent.rename(path.parent.with_name(path.parent.name + ".moved"))
    path.parent.mkdir()
    shutil.copy(GOOD, path)


def unlinked(host, name, path, process):
    path.unlink()


def renamed_at_once(host, name, path, process):
    put_good_over(path)


def unlinked_at_once(host, name, path, process):
    path.unlink()


def script_renamed(host, name, path, process):
    path.with_name("good").write_text(SCRIPT % "good")
    path.with_name("good").chmod(0o755)
    path.with_name("good").rename(path)


def script_unlinked_at_once(host, name, path, process):
    path.unlink()


def script_in_a_namespace(host, name, path, process):
    pass  # the bad one is mounted over it where it is started


def script_by_descriptor(host, name, path, process):
    pass


def by_a_loader(host, name, path, process):
    pass


SCRIPTS = (script_renamed, script_unlinked_at_once, script_in_a_namespace, script_by_descriptor)
KINDS = (renamed, overwritten, retargeted, directory, unlinked, renamed_at_once, unlinked_at_once,
         overwritten_at_once, *SCRIPTS, by_a_loader)
# Its content is gone when it is looked for: it may be unresolved or unjudged, and nothing else.
MAY_MISS = (overwritten_at_once,)
AT_ONCE = (renamed_at_once, unlinked_at_once, overwritten_at_once, script_unlinked_at_once)


def content_for(kind):
    return "script" if kind in SCRIPTS else "dynamic" if kind is by_a_loader else "static"


def build_bad(folder):
    """A bad program for each way to start one, "bad.WAY"; their keys by it."""
    source = folder / "bad.c"
    source.write_text(SOURCE % folder.name)
    compiler = shutil.which("cc") or livehost.skip("needs a C compiler for its helpers")
    for way, flags in (("static", ["-static"]), ("dynamic", [])):
        subprocess.run([compiler, "-O2", *flags, "-o", str(folder / f"bad.{way}"), str(source)], check=True)
    (folder / "bad.script").write_text(SCRIPT % folder.name)
    (folder / "bad.script").chmod(0o755)
    keys = {}
    for way in ("static", "dynamic", "script"):
        content = (folder / f"bad.{way}").read_bytes()
        keys[way] = hashlib.sha1(content).hexdigest() + hashlib.md5(content).hexdigest()
    (folder / "list").write_text("".join(f"{key[40:]}  bad\n" for key in keys.values()))
    return keys


def left_out(kind):
    """Why this machine cannot do it; "" when it can."""
    if kind is script_in_a_namespace and not can_own_mounts():
        return "the root here is no mount of its own"
    if kind is by_a_loader and not pathlib.Path(LOADER).exists():
        return f"there is no {LOADER}"
    return ""


def prepare(folder, kind, number):
    """A program, and the name that it is to be started by."""
    place = folder / f"{kind.__name__}{number}"
    place.mkdir()
    path = place / "program"
    shutil.copy(folder / f"bad.{content_for(kind)}", path)
    if kind is script_in_a_namespace:
        path.rename(path.with_name("bad"))
        path.write_text(SCRIPT % "good")
        path.chmod(0o755)
    if kind is not retargeted:
        return path, path
    (place / "link").symlink_to("program")
    return path, place / "link"


def popen(kind, path, name, **more):
    if kind is by_a_loader:
        return subprocess.Popen([LOADER, "./program"], cwd=path.parent, **more)
    if kind is script_by_descriptor:
        with open(path, "rb") as file:
            return subprocess.Popen([f"/dev/fd/{file.fileno()}"], pass_fds=[file.fileno()], **more)
    if kind is not script_in_a_namespace:
        return subprocess.Popen([str(name)], **more)

    def cover():
        own_mounts()
        mount(path.with_name("bad"), path, MS_BIND)
    return subprocess.Popen([str(name)], preexec_fn=cover, **more)


def start(host, kind, path, name):
    """When it was started."""
    begun = time.time()
    process = popen(kind, path, name, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                    stdin=subprocess.DEVNULL if kind in AT_ONCE else subprocess.PIPE)
    if kind not in AT_ONCE:
        process.stdout.read(1)  # it runs, and goes on until its input ends
    kind(host, name, path, process)
    end(process)
    return begun


def judge(host, started, keys):
    """What was shown of each; the number of complaints."""
    complaints = 0
    for kind in KINDS:
        key = keys[content_for(kind)]
        names = {name for name, of in started.items() if of is kind}
        places = {str(pathlib.Path(name).parent) for name in names}
        if not names:
            continue
        bad = [str(pathlib.Path(r["file"]).parent) for r in host.of("bad_run") if r["file"] in names]
        others = [r for r in host.of("query", "verdict")
                  if r["path"] in names and r["key"] not in ("", key) and not r.get("changed")]
        missing, twice = places - set(bad), len(bad) - len(set(bad))
        print(f"{kind.__name__:23} {len(set(bad))} of {len(places)} shown as bad, {twice} twice, "
              f"{len(others)} with another's verdict")
        complaints += twice + len(others) + (0 if kind in MAY_MISS else len(missing))
        for place in sorted(missing)[:0 if kind in MAY_MISS else 3]:
            print("  not shown:", [r for r in host.records if place + "/" in str(r)][:6])
        for record in others[:3]:
            print("  another's:", record)
    return complaints


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("host")
    parser.add_argument("--runs", type=int, default=20)
    parser.add_argument("--place", default="/var/tmp", help="where the programs lie")
    parser.add_argument("--kinds", default=",".join(kind.__name__ for kind in KINDS))
    args = parser.parse_args()
    livehost.check_machine()
    kinds = [kind for kind in KINDS if kind.__name__ in args.kinds.split(",")]
    for kind in [kind for kind in kinds if left_out(kind)]:
        print(f"{kind.__name__:23} left out: {left_out(kind)}")
        kinds.remove(kind)
    with tempfile.TemporaryDirectory(prefix="tevmon-verdicts-", dir=args.place) as name:
        folder = pathlib.Path(name)
        keys = build_bad(folder)
        for last in ("last", "verylast"):
            shutil.copy(GOOD, folder / last)
        # Made before the first is started: a file changed just before its start is another matter.
        made = [(kind, *prepare(folder, kind, number))
                for number in range(args.runs) for kind in kinds]
        host = livehost.Host(args.host, folder, "--bad", str(folder / "list"))
        started, begun = {}, {}
        for kind, path, name in made:
            when = start(host, kind, path, name)
            for each in {str(path), str(name)}:
                started[each], begun[each] = kind, when
        # What was reported once more is analysed as well: the last of it is a file of its own.
        for last in ("last", "verylast"):
            subprocess.run([str(folder / last)], check=True)
            host.judged(folder / last)
        code = host.stop()
        balance = host.balance()
        complaints = judge(host, started, keys)
        delays = sorted(r["time"] - begun[r["file"]] for r in host.of("bad_run")
                        if r["file"] in begun)
        left = list((folder / "state" / "run").iterdir())
        print(f"exit code {code}, unexplained {balance['unexplained']}, changed {balance['changed']}, "
              f"again {balance['launches']['again']}, left behind {left}")
        if delays:
            print(f"shown {max(delays[-1], 0):.1f} s after the start at the latest, in whole seconds")
        good = code == 0 and balance["unexplained"] == 0 and not left and complaints == 0
        seen = renamed not in kinds or (balance["changed"] > 0 and balance["launches"]["again"] > 0)
        return 0 if good and seen else 1


if __name__ == "__main__":
    sys.exit(main())
