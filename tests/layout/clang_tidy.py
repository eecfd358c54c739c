#!/usr/bin/env python3
"""clang-tidy finds nothing in the sources named, with the checks of .clang-tidy."""

import argparse
import json
import pathlib
import subprocess
import sys
import tempfile

import goodstate
import layout

ROOT = pathlib.Path(__file__).resolve().parents[2]
# What is wrong with a file, and the check that must say so.
BAD = {
    "clang-analyzer": "int* F() {\n    int* p = new int(1);\n    delete p;\n    return p;\n}\n",
    "bugprone-suspicious-semicolon": "int F(int n) {\n    if (n > 1);\n    n = 2;\n    return n;\n}\n",
    "reserved-identifier": "int F(int __n) {\n    return __n;\n}\n",
    "reserved-macro-identifier": "#define _N 1\nint F();\n",
}


# Options of g++ that clang does not know.
ONLY_GNU = {"-fno-gnu-unique", "-fno-var-tracking", "-Wlogical-op"}


def write_commands(build, sources, folder):
    """Writes the commands of these sources into folder, as clang understands them."""
    commands = json.loads(pathlib.Path(build, "compile_commands.json").read_text(encoding="utf-8"))
    wanted = [command for command in commands if command["file"] in map(str, sources)]
    for command in wanted:
        kept = [word for word in command["command"].split(" ") if word not in ONLY_GNU]
        command["command"] = " ".join(kept)
    pathlib.Path(folder, "compile_commands.json").write_text(json.dumps(wanted), encoding="utf-8")
    return sorted(set(sources) - {command["file"] for command in wanted})


def check(program, build, sources, state):
    """Complaints about the sources; those that were good before, with all they include, are left out."""
    with tempfile.TemporaryDirectory(prefix="tevmon-layout-") as folder:
        unknown = write_commands(build, sources, folder)
        if unknown:
            return [f"{source}: the build folder does not compile it" for source in unknown]
        commands = pathlib.Path(folder, "compile_commands.json").read_text(encoding="utf-8")
        version = subprocess.run([program, "--version"], text=True, capture_output=True).stdout
        good = goodstate.GoodState(ROOT, state, version, (ROOT / ".clang-tidy").read_text(encoding="utf-8"))
        names = {source: good.name(pathlib.Path(source).relative_to(ROOT).as_posix(), commands)
                 for source in sources}
        changed = [source for source in sources if not good.knows(names[source])]
        if not changed:
            print("unchanged since a good run")
            return []
        complaints = tidy(program, folder, changed)
        if not complaints:
            for source in changed:
                good.store(names[source])
        return complaints


def tidy(program, build, sources):
    """What clang-tidy complains of, one line each, and the notes that explain it."""
    done = subprocess.run([program, "--quiet", "-p", str(build), *map(str, sources)],
                          text=True, capture_output=True)
    return [] if done.returncode == 0 else (done.stdout or done.stderr).rstrip().splitlines()


def self_test(program):
    """Bad files, checked with the tree's own .clang-tidy, must be refused."""
    config = (ROOT / ".clang-tidy").read_text(encoding="utf-8")
    let_pass = []
    for check_name, text in BAD.items():
        with tempfile.TemporaryDirectory(prefix="tevmon-layout-") as folder:
            layout.write_tree(folder, {"bad.cpp": text, ".clang-tidy": config,
                                       "compile_flags.txt": "-std=c++17\n"})
            complaints = "\n".join(tidy(program, folder, [pathlib.Path(folder, "bad.cpp")]))
        if check_name not in complaints:
            let_pass.append(f"{check_name} says nothing of a bad file: {complaints}")
    return let_pass


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("sources", nargs="*", help="source files that the build folder compiles")
    parser.add_argument("--build", help="the build folder with compile_commands.json")
    parser.add_argument("--clang-tidy", default="clang-tidy")
    parser.add_argument("--state", help="folder that keeps what was found good")
    parser.add_argument("--self-test", action="store_true", help="check a bad file instead")
    arguments = parser.parse_args()
    if arguments.self_test:
        complaints = self_test(arguments.clang_tidy)
    elif arguments.sources and arguments.build:
        complaints = check(arguments.clang_tidy, arguments.build, arguments.sources, arguments.state)
    else:
        parser.error("sources and --build are needed")
    print("\n".join(complaints + [f"{len(complaints)} lines of complaint"]))
    sys.exit(1 if complaints else 0)


if __name__ == "__main__":
    main()
