"""Programs started in known number and in many ways, and what a watch must report of each."""

import ctypes
import os
import pathlib
import shutil
import signal
import stat
import subprocess
import threading

CLONE_NEWNS, CLONE_NEWUSER = 0x00020000, 0x10000000
MS_BIND, MS_REC, MS_PRIVATE = 4096, 16384, 1 << 18
NOBODY = 65534
LIBC = ctypes.CDLL(None, use_errno=True)


class Image:
    """One exec: the file, the paths under which it may be reported, its arguments."""

    def __init__(self, file, paths=None, command=None, script=None, nameless=False,
                 perhaps=None, held=None):
        status = os.stat(file)
        self.file = (status.st_dev, status.st_ino)
        self.resolved = os.path.realpath(file)
        self.paths = [str(path) for path in paths] if paths else [str(file)]
        self.command = command
        self.script = str(script) if script else None  # reported in addition
        self.perhaps = str(perhaps) if perhaps else None  # a script that may be reported in addition
        self.held = str(held) if held else None  # the name of one that may be reported by a link
        self.nameless = nameless  # no path leads to it: /proc/PID/exe, or not resolvable


class Start:
    def __init__(self, kind, mark, images):
        self.kind, self.mark, self.images, self.pid = kind, mark, images, None


def unshare(flags):
    if LIBC.unshare(flags) != 0:
        raise OSError(ctypes.get_errno(), "unshare")


def mount(source, target, flags, kind=None):
    encode = lambda text: text if text is None else os.fsencode(text)
    if LIBC.mount(encode(source), encode(target), encode(kind), flags, None) != 0:
        raise OSError(ctypes.get_errno(), f"mount {target}")


def own_mounts():
    """A mount namespace whose mounts nobody else sees."""
    unshare(CLONE_NEWNS)
    mount("none", "/", MS_REC | MS_PRIVATE)


def can_own_mounts():
    """Not in a chroot whose root is no mount of its own."""
    child = os.fork()
    if child == 0:
        try:
            own_mounts()
        except OSError:
            os._exit(1)
        os._exit(0)
    return os.waitpid(child, 0)[1] == 0


def text_of(arguments):
    return b" ".join(os.fsencode(each) for each in arguments).decode(errors="replace")


class Kinds:
    """Starts one program of each kind. all() leaves those alive that could not be reported otherwise."""

    def __init__(self, folder, tiny):
        self.folder = pathlib.Path(os.path.realpath(folder))
        self.folder.chmod(0o755)
        self.tool = shutil.copy("/bin/true", self.folder / "tool")
        self.tiny = tiny
        self.starts = []
        self.failed = []  # marks of starts that fail
        self.alive = []
        self.left_out = []
        self.undo = []

    def mark(self):
        return f"mark-{os.getpid()}-{len(self.starts) + len(self.failed)}-end"

    def run(self, kind, argv, images=None, wait=True, executable=None, **more):
        """argv with the mark behind its first word; images default to what is executed."""
        mark = self.mark()
        argv = [argv[0], mark, *argv[1:]]
        executable = executable or argv[0]
        if images is None:
            images = [Image(executable, command=text_of(argv))]
        start = Start(kind, mark, images)
        process = subprocess.Popen(argv, executable=executable, stderr=subprocess.DEVNULL, **more)
        start.pid = process.pid
        self.starts.append(start)
        if wait:
            process.wait()
        else:
            self.alive.append(process)
        return start

    def plain(self, count):
        for _ in range(count):
            mark = self.mark()
            start = Start("plain", mark, [Image("/bin/true", command=f"/bin/true {mark}")])
            start.pid = os.posix_spawn("/bin/true", ["/bin/true", mark], {})
            self.starts.append(start)
            os.waitpid(start.pid, 0)

    def all(self):
        for each in (self.names, self.arguments, self.scripts, self.descriptors, self.nameless,
                     self.places, self.processes, self.loaders, self.failing):
            each()

    # -- by which name

    def names(self):
        folder, tool = self.folder, str(self.tool)
        (folder / "sub").mkdir()
        (folder / "link").symlink_to("tool")
        (folder / "parent").symlink_to(folder)
        os.link(tool, folder / "hard")
        self.run("absolute", [tool])
        self.relative("relative", "./tool", [tool])
        self.relative("relative through a parent", "sub/../tool", [f"{folder}/sub/../tool"])
        self.relative("through /proc/self/cwd", "/proc/self/cwd/tool", [tool])
        self.run("symbolic link", [str(folder / "link")])
        self.run("behind a linked directory", [str(folder / "parent/tool")])
        self.run("hard link", [str(folder / "hard")])
        self.run("another argv[0]", ["another name"], executable=tool)
        self.run("empty argv[0]", [""], executable=tool)
        for name in ("with blank", 'quote"', "line\nfeed", "back\\slash", "日"):
            self.run("odd name", [str(shutil.copy(tool, folder / name))])

    def relative(self, kind, name, paths):
        start = self.run(kind, [name], [Image(self.tool, paths)], cwd=self.folder)
        start.images[0].command = f"{name} {start.mark}"

    # -- with which arguments

    def arguments(self):
        tool = str(self.tool)
        self.run("odd arguments", [tool, "", " ", "a  b", "\n", "\t", '"', "\\", "'", "%s%n"])
        self.run("bytes that are no UTF-8", [tool, b"\xff\xfe \xc3", "日本"])
        self.run("many arguments", [tool, *["x"] * 2000])
        start = self.run("long arguments", [tool, "y" * 20000])
        start.images[0].command = f"{tool} {start.mark} ".ljust(16384, "y")

    # -- scripts

    def script(self, name, text):
        path = self.folder / name
        path.write_text(text)
        path.chmod(0o755)
        return path

    def scripts(self):
        script = self.script("script.sh", "#!/bin/sh\n:\n")
        for name, cwd in ((str(script), None), ("./script.sh", self.folder)):
            start = self.run("script", [name], [self.shell(script)], cwd=cwd)
            start.images[0].command = f"/bin/sh {name} {start.mark}"
        nested = self.script("nested", f"#!{script}\n")
        start = self.run("nested script", [str(nested)], [self.shell(nested)])
        start.images[0].command = f"/bin/sh {script} {nested} {start.mark}"
        by_env = self.script("env.sh", "#!/usr/bin/env sh\n:\n")
        start = self.run("script by env", [str(by_env)],
                         [Image("/usr/bin/env", script=by_env), self.shell()])
        start.images[0].command = f"/usr/bin/env sh {by_env} {start.mark}"
        start.images[1].command = f"sh {by_env} {start.mark}"
        mark = self.mark()
        argv = ["/usr/bin/env", "-i", str(self.tool), mark]
        self.chain("env", mark, argv, [Image("/usr/bin/env", command=text_of(argv)),
                                       Image(self.tool, command=f"{self.tool} {mark}")])

    def shell(self, script=None):
        return Image("/bin/sh", [os.path.realpath("/bin/sh"), "/bin/sh"], script=script)

    def chain(self, kind, mark, argv, images, **more):
        start = Start(kind, mark, images)
        process = subprocess.Popen(argv, **more)
        start.pid = process.pid
        self.starts.append(start)
        process.wait()

    # -- by descriptor

    def descriptors(self):
        tool = os.open(self.tool, os.O_RDONLY)
        start = self.run("by descriptor", ["tool"],
                         [Image(self.tool)], executable=f"/proc/self/fd/{tool}", pass_fds=[tool])
        start.images[0].command = f"tool {start.mark}"
        os.close(tool)
        self.forked("execveat", [Image(self.tool)],
                    lambda mark: os.execve(os.open(self.tool, os.O_RDONLY | os.O_CLOEXEC),
                                           ["tool", mark], {}))
        script = self.folder / "script.sh"
        # The kernel names it /dev/fd/N, which is another file in every process.
        self.forked("script by descriptor",
                    [Image("/bin/sh", [os.path.realpath("/bin/sh")], perhaps=script)],
                    lambda mark: os.execve(self.inherited(script), ["script", mark], {}))

    @staticmethod
    def inherited(path):
        descriptor = os.open(path, os.O_RDONLY)
        os.set_inheritable(descriptor, True)
        return descriptor

    def forked(self, kind, images, run):
        start = Start(kind, self.mark(), images)
        start.pid = os.fork()
        if start.pid == 0:
            try:
                run(start.mark)
            finally:
                os._exit(1)
        self.starts.append(start)
        os.waitpid(start.pid, 0)

    # -- files without a name; each kept running until it was reported

    def nameless(self):
        memory = os.memfd_create("mem", 0)
        os.write(memory, pathlib.Path("/bin/cat").read_bytes())
        gone = shutil.copy("/bin/cat", self.folder / "gone")
        deleted = os.open(gone, os.O_RDONLY)
        os.unlink(gone)
        for kind, descriptor in (("memfd", memory), ("deleted", deleted)):
            image = Image(f"/proc/self/fd/{descriptor}", nameless=True)
            start = self.run(kind, ["cat", "-"], [image], wait=False, stdin=subprocess.PIPE,
                             executable=f"/proc/self/fd/{descriptor}", pass_fds=[descriptor])
            image.command = f"cat {start.mark} -"

    def replaced(self, host):
        """Another file takes the name before the host looks."""
        program = shutil.copy("/bin/cat", self.folder / "replaced")
        new = shutil.copy(self.tool, self.folder / "new")
        image = Image(program, nameless=True)
        host.send_signal(19)
        start = self.run("replaced while running", [str(program), "-"], [image], wait=False,
                         stdin=subprocess.PIPE)
        image.command = f"{program} {start.mark} -"
        os.rename(new, program)
        host.send_signal(18)

    # -- elsewhere

    def places(self):
        root = self.folder / "root"
        root.mkdir()
        inside = shutil.copy(self.tiny, root / "tool")
        start = self.run("chroot", ["/tool"], [Image(inside)],
                         preexec_fn=lambda: (os.chroot(root), os.chdir("/")))
        start.images[0].command = f"/tool {start.mark}"
        if can_own_mounts():
            self.under_a_mount()
        else:
            print("left out: mount namespace: the root here is no mount of its own")
        self.run("user namespace", [str(self.tool)], preexec_fn=lambda: unshare(CLONE_NEWUSER))
        self.borrowing_scripts()

    def under_a_mount(self):
        clean = shutil.copy("/bin/cat", self.folder / "clean")

        def cover():
            own_mounts()
            mount(self.tool, clean, MS_BIND)

        start = self.run("mount namespace", [str(clean)],
                         [Image(self.tool, nameless=True)], preexec_fn=cover)
        start.images[0].command = f"{clean} {start.mark}"

    def borrowing_scripts(self):
        """Scripts whose names lead to another file here: the file that was started or none."""
        clean = self.script("clean.sh", "#!/bin/sh\nexit 1\n")
        other = self.script("other.sh", "#!/bin/sh\n:\n")
        link = self.folder / "magic.sh"
        link.symlink_to(f"/proc/self/root{other}")
        interpreter = self.shell()
        interpreter.perhaps = str(other)  # a sensor that knows which file was opened reports it
        interpreter.held = str(link)
        start = self.run("script over a link of /proc", [str(link)], [interpreter])
        start.images[0].command = f"/bin/sh {link} {start.mark}"
        ready, tell = os.pipe()
        holder = os.fork()
        if holder == 0:
            try:
                own_mounts()
                mount(other, clean, MS_BIND)
                os.write(tell, b"x")
                signal.pause()
            finally:
                os._exit(1)
        os.close(tell)
        if os.read(ready, 1) == b"x":
            interpreter = self.shell()
            interpreter.held = str(clean)  # as it is named there
            start = self.run("script of another namespace", ["./clean.sh"], [interpreter],
                             cwd=f"/proc/{holder}/root{self.folder}")
            start.images[0].command = f"/bin/sh ./clean.sh {start.mark}"
        os.close(ready)
        os.kill(holder, signal.SIGKILL)
        os.waitpid(holder, 0)

    # -- by which process

    def processes(self):
        tool = str(self.tool)
        thread = threading.Thread(target=self.run, args=("from a thread's child", [tool]))
        thread.start()
        thread.join()
        self.forked("by a thread", [Image(tool)], self.in_a_thread)
        mark = self.mark()
        start = Start("vfork", mark, [Image(tool, command=f"{tool} {mark}")])
        start.pid = os.posix_spawn(tool, [tool, mark], {})
        os.waitpid(start.pid, 0)
        self.starts.append(start)
        mark = self.mark()
        command = f"exec /bin/sh -c 'exec {tool} {mark}'"
        self.chain("exec chain", mark, ["/bin/sh", "-c", command],
                   [self.shell(), self.shell(), Image(tool, command=f"{tool} {mark}")])
        owned = shutil.copy(tool, self.folder / "setuid")
        os.chmod(owned, 0o4755)
        self.run("setuid", [str(owned)], user=NOBODY)
        self.run("static", [str(self.tiny)])

    def in_a_thread(self, mark):
        thread = threading.Thread(target=os.execv, args=(self.tool, ["tool", mark]))
        thread.start()
        thread.join()

    # -- by which loader

    def loaders(self):
        loader = "/lib64/ld-linux-x86-64.so.2"
        if os.path.exists(loader):
            mark = self.mark()
            argv = [loader, "/bin/true", mark]
            self.chain("loader", mark, argv,
                       [Image(loader, command=text_of(argv), script="/bin/true")])
        else:
            self.left_out.append(f"loader: there is no {loader}")
        self.registered()

    def registered(self):
        """A file for which an interpreter was registered with the kernel."""
        place = pathlib.Path("/proc/sys/fs/binfmt_misc")
        try:
            if not (place / "register").exists():
                mount("binfmt_misc", place, 0, "binfmt_misc")
                self.undo.append(lambda: LIBC.umount2(os.fsencode(str(place)), 2))
            (place / "register").write_text(f":tevmonlive:M::tevmon-live::{self.tool}:\n")
        except OSError as error:
            self.left_out.append(f"binfmt_misc: {error}")
            return
        self.undo.insert(0, lambda: (place / "tevmonlive").write_text("-1"))
        data = self.script("registered", "tevmon-live\n")
        self.run("binfmt_misc", [str(data)], [Image(self.tool, script=data)])

    # -- starts that fail

    def failing(self):
        data = self.script("data", "no program")
        closed = self.script("closed", "no program")
        closed.chmod(0o644)
        lost = self.script("lost", "#!/no/such/interpreter\n")
        busy = shutil.copy(self.tool, self.folder / "busy")
        with open(busy, "ab"):
            for path in (data, closed, lost, busy, self.folder / "nowhere"):
                self.fail([str(path)])
            self.fail([str(self.tool), "z" * (1 << 20)])

    def fail(self, argv):
        mark = self.mark()
        self.failed.append(mark)
        try:
            subprocess.run([argv[0], mark, *argv[1:]], check=False)
        except OSError:
            return
        raise AssertionError(f"{argv[0]} could be started")

    def end(self):
        for process in self.alive:
            process.communicate()
        for each in self.undo:
            each()


class Comparison:
    """What was reported of the starts, one exec at a time."""

    def __init__(self, kinds, records):
        self.execs = self.reported = self.right_paths = self.right_arguments = 0
        self.wrong = []  # must not be, whatever captured it
        self.missed = []  # what a fallback may not see
        self.kinds = {start.kind for start in kinds.starts}
        by_pid = {}
        for record in records:
            if record["event"] in ("launch", "unresolved"):
                by_pid.setdefault(record["pid"], []).append(record)
                if any(mark in record["cmd"] for mark in kinds.failed):
                    self.wrong.append(f"a start that failed was reported: {record['cmd'][:200]}")
        for start in kinds.starts:
            self.compare(start, by_pid.get(start.pid, []))

    def compare(self, start, records):
        name = f"{start.kind} ({start.mark})"
        scripts = [record for record in records if record.get("script")]
        reported = [record for record in records if not record.get("script")]
        self.execs += len(start.images)
        self.reported += min(len(reported), len(start.images))
        if len(reported) != len(start.images):
            self.missed.append(f"{name}: {len(reported)} launches reported, {len(start.images)} expected")
        for record, image in zip(reported, start.images):
            self.one(name, record, image)
        wanted = [image.script for image in start.images if image.script]
        allowed = wanted + [image.perhaps for image in start.images if image.perhaps]
        links = [image.held for image in start.images if image.held]
        for record in scripts:
            linked = record["origin"] == "held" and record["path"] in links
            if record["path"] not in allowed and not linked:
                self.wrong.append(f"{name}: script reported as {record['path']}, not {wanted}")
        for script in wanted:
            if script not in [record["path"] for record in scripts]:
                self.missed.append(f"{name}: the script {script} was not reported")

    def one(self, name, record, image):
        if image.command is not None and record["cmd"] != image.command:
            self.missed.append(
                f"{name}: arguments {record['cmd'][:200]!r}, not {image.command[:200]!r}")
        else:
            self.right_arguments += 1
        if record["event"] == "unresolved":
            self.right_paths += image.nameless
            if not image.nameless:
                self.missed.append(f"{name}: not resolvable")
            return
        path = record["path"]
        if record["origin"] == "held":
            right = True  # the name is gone; the module gets a link, which verdicts.py follows
        else:
            right = self.same(path, image)
        if not right:
            self.wrong.append(f"{name}: reported as {path}, which is another file")
            return
        self.right_paths += 1
        if not image.nameless and path not in image.paths:
            self.missed.append(f"{name}: reported as {path}, not {image.paths}")

    @staticmethod
    def same(path, image):
        try:
            status = os.stat(path)
        except OSError:
            return False
        return stat.S_ISREG(status.st_mode) and (status.st_dev, status.st_ino) == image.file
