#!/usr/bin/env python3
"""clang-tidy finds nothing in the sources named, with the checks of .clang-tidy."""

import argparse
import json
import pathlib
import subprocess
import sys
import tempfile

import layout

BAD = "int* F() {\n    int* p = new int(1);\n    delete p;\n    return p;\n}\n"


# Options of g++ that clang does not know.
ONLY_GNU = {"-fno-gnu-unique", "-Wlogical-op"}


def write_commands(build, sources, folder):
    """Writes the commands of these sources into folder, as clang understands them."""
    commands = json.loads(pathlib.Path(build, "compile_commands.json").read_text(encoding="utf-8"))
    wanted = [command for command in commands if command["file"] in sources]
    for command in wanted:
        kept = [word for word in command["command"].split(" ") if word not in ONLY_GNU]
        command["command"] = " ".join(kept)
    pathlib.Path(folder, "compile_commands.json").write_text(json.dumps(wanted), encoding="utf-8")
    return sorted(set(sources) - {command["file"] for command in wanted})


def tidy(program, build, sources):
    """What clang-tidy complains of, one line each, and the notes that explain it."""
    done = subprocess.run([program, "--quiet", "-p", str(build), *map(str, sources)],
                          text=True, capture_output=True)
    return [] if done.returncode == 0 else (done.stdout or done.stderr).rstrip().splitlines()


def self_test(program):
    """A file that uses freed memory, checked with the tree's own .clang-tidy, must be refused."""
    root = pathlib.Path(__file__).resolve().parents[2]
    with tempfile.TemporaryDirectory(prefix="tevmon-layout-") as folder:
        config = (root / ".clang-tidy").read_text(encoding="utf-8")
        layout.write_tree(folder, {"bad.cpp": BAD, ".clang-tidy": config,
                                   "compile_flags.txt": "-std=c++17\n"})
        complaints = "\n".join(tidy(program, folder, [pathlib.Path(folder, "bad.cpp")]))
    return [] if "clang-analyzer" in complaints else [f"freed memory is let pass: {complaints}"]


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("sources", nargs="*", help="source files that the build folder compiles")
    parser.add_argument("--build", help="the build folder with compile_commands.json")
    parser.add_argument("--clang-tidy", default="clang-tidy")
    parser.add_argument("--self-test", action="store_true", help="check a bad file instead")
    arguments = parser.parse_args()
    if arguments.self_test:
        complaints = self_test(arguments.clang_tidy)
    elif arguments.sources and arguments.build:
        with tempfile.TemporaryDirectory(prefix="tevmon-layout-") as folder:
            unknown = write_commands(arguments.build, arguments.sources, folder)
            complaints = [f"{source}: the build folder does not compile it" for source in unknown]
            complaints = complaints or tidy(arguments.clang_tidy, folder, arguments.sources)
    else:
        parser.error("sources and --build are needed")
    print("\n".join(complaints + [f"{len(complaints)} lines of complaint"]))
    sys.exit(1 if complaints else 0)


if __name__ == "__main__":
    main()
