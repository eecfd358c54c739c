"""What a slow check found good before, so that by hand only what changed is checked again.

A state is a folder of empty files, one for each good answer, named after everything that the answer
depends on: the file, every file of ours that it includes, the command, the tool, and the packages
that are installed. Where CI is set in the environment nothing stored counts.
"""

import hashlib
import os
import pathlib
import re

INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"', re.MULTILINE)
PACKAGES = pathlib.Path("/var/lib/dpkg/status")  # the headers of other libraries come from there


def closure(root, path):
    """The file and what it includes of ours, by paths from the root, sorted."""
    found, open_paths = set(), [path]
    while open_paths:
        path = open_paths.pop()
        file = pathlib.Path(root, path)
        if path in found or not file.is_file():
            continue
        found.add(path)
        open_paths += INCLUDE.findall(file.read_text(encoding="utf-8", errors="replace"))
    return sorted(found)


class GoodState:
    """folder None: nothing is stored and nothing is known."""

    def __init__(self, root, folder, *depends_on):
        self.root, self.folder = root, pathlib.Path(folder) if folder else None
        packages = str(PACKAGES.stat().st_mtime_ns) if PACKAGES.exists() else ""
        self.common = "\0".join([packages, *map(str, depends_on)])

    def name(self, path, *depends_on):
        digest = hashlib.sha256("\0".join([self.common, *depends_on]).encode())
        for part in closure(self.root, path):
            digest.update(part.encode() + b"\0" + pathlib.Path(self.root, part).read_bytes())
        return digest.hexdigest()

    def knows(self, name):
        return self.folder is not None and "CI" not in os.environ and (self.folder / name).exists()

    def store(self, name):
        if self.folder is not None:
            self.folder.mkdir(parents=True, exist_ok=True)
            (self.folder / name).touch()
