"""The screen of tevmon-host watch on a terminal of its own: what it shows, and that the terminal is as
before after every way in which it can end.

    watch_screen.py shows|ends TEVMON-HOST
"""

import fcntl
import os
import pathlib
import pty
import resource
import select
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import termios
import time

from livehost import check_machine

ENTER = b"\x1b[?1049h"
LEAVE = b"\x1b[?7h\x1b[?25h\x1b[?1049l"
DEADLINE = 60


class Watch:
    """A watch on a terminal that belongs to it; screen holds everything it wrote."""

    def __init__(self, program, folder, *options):
        self.screen = b""
        self.ended = None
        self.process, self.master = pty.fork()
        if self.process == 0:
            os.environ.update(TERM="xterm", LANG="C.UTF-8")
            os.environ.pop("NO_COLOR", None)
            resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
            os.execv(program, [program, "watch", "--state-dir", str(folder / "state"),
                               "--no-packages", "--no-files", *options])
        self.keys = termios.tcgetattr(self.master)
        self.resize(100, 30)

    def resize(self, columns, rows):
        fcntl.ioctl(self.master, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))

    def wait_for(self, text, since=0):
        end = time.monotonic() + DEADLINE
        while text not in self.screen[since:] and time.monotonic() < end and self.read():
            pass
        if text not in self.screen[since:]:
            sys.exit(f"{text!r} never came; the last that came: {self.screen[-2000:]!r}")

    def read(self):
        try:
            if select.select([self.master], [], [], 0.2)[0]:
                part = os.read(self.master, 65536)
                self.screen += part
                return part != b""
        except OSError:
            return False
        return True

    def kill(self, number):
        os.kill(self.process, number)

    def wait(self):
        """The exit status, 128 + N for a signal N; reads on until then."""
        end = time.monotonic() + DEADLINE
        while time.monotonic() < end:
            if self.master is not None:
                self.read()
            process, status = os.waitpid(self.process, os.WNOHANG)
            if process:
                while self.master is not None and select.select([self.master], [], [], 0)[0]:
                    if not self.read():
                        break
                return os.waitstatus_to_exitcode(status)
            if self.master is None:
                select.select([], [], [], 0.05)
        os.kill(self.process, signal.SIGKILL)
        sys.exit("the watch never ended")

    def hang_up(self):
        os.close(self.master)
        self.master = None


def check(condition, what):
    print(("good: " if condition else "WRONG: ") + what)
    return condition


def shows(program, folder):
    bad = folder / "bad"
    shutil.copy("/bin/true", bad)
    with open(bad, "ab") as file:
        file.write(b"bad")
    listed = folder / "bad.txt"
    listed.write_bytes(subprocess.run(["sha1sum", str(bad)], check=True, capture_output=True).stdout)
    watch = Watch(program, folder, "--bad", str(listed))
    watch.wait_for(b"watching")
    subprocess.run([str(bad)], check=True)
    watch.wait_for(b"bad       70")
    watch.wait_for(b"VERDICT")
    since = len(watch.screen)
    subprocess.run([str(bad)], check=True)  # the module skips it now
    watch.wait_for(b"bad       70", since)
    since = len(watch.screen)
    watch.resize(200, 40)
    watch.wait_for(b"\x1b[40;1H", since)
    watch.kill(signal.SIGINT)
    code = watch.wait()
    after = watch.screen.split(LEAVE)[-1]
    return all([
        check(watch.screen.startswith(ENTER) or ENTER in watch.screen, "a screen of its own"),
        check(watch.screen.count(LEAVE) == 1, "the screen is given back once"),
        check(code == 0, f"Ctrl-C ends it with {code}"),
        check(b"Balance" in after and b"unexplained           0" in after, "the balance follows"),
        check(termios.tcgetattr(watch.master) == watch.keys, "the keyboard is as before"),
    ])


def ends(program, folder):
    good = True
    watch = Watch(program, folder)
    watch.wait_for(b"watching")
    watch.kill(signal.SIGTERM)
    watch.kill(signal.SIGINT)  # another, because two of a kind may become one
    code = watch.wait()
    good &= check(code in (128 + signal.SIGTERM, 128 + signal.SIGINT) and LEAVE in watch.screen,
                  f"a second signal ends it with {code}")
    good &= check(termios.tcgetattr(watch.master) == watch.keys, "the keyboard after it")

    watch = Watch(program, folder)
    watch.wait_for(b"watching")
    watch.kill(signal.SIGSEGV)
    watch.wait()
    good &= check(LEAVE in watch.screen, "a crash")

    watch = Watch(program, folder)
    watch.wait_for(b"watching")
    watch.hang_up()
    code = watch.wait()
    good &= check(code in (0, 9), f"a closed terminal ends it with {code}")

    watch = Watch(program, folder, "--plain", "--for", "1")
    code = watch.wait()
    good &= check(code == 0 and ENTER not in watch.screen and b"Balance" in watch.screen,
                  "--plain has lines")
    return good


def main():
    check_machine()
    part, program = sys.argv[1], os.path.abspath(sys.argv[2])
    with tempfile.TemporaryDirectory(prefix="tevmon-live-") as name:
        return 0 if {"shows": shows, "ends": ends}[part](program, pathlib.Path(name)) else 1


sys.exit(main())
