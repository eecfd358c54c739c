#!/usr/bin/env python3
"""The built libraries show the host what they should, find each other, and are hardened."""

import os
import re
import subprocess
import sys
import tempfile
import argparse

FOUR = {"InitializePlugin", "UninitializePlugin", "CreateObject", "DestroyObject"}
# library -> (exact exports or None, what it must be linked to, its run path)
EXPECTED = {
    "libtevmon.so": (FOUR, {"libhostframework.so", "libjsoncpp.so"}, "$ORIGIN"),
    # Linked dynamically: two copies of SQLite in one process break each other's file locks.
    "libhostframework.so": (None, {"libsqlite3.so", "libcrypto.so"}, None),
}


def output(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def exported(library):
    """Names the dynamic linker sees, version names of the linker script aside."""
    lines = output("nm", "-D", "--defined-only", library).splitlines()
    return {fields[-1] for fields in map(str.split, lines) if fields and fields[-2] != "A"}


def unique_symbols(library):
    return re.findall(r"\bUNIQUE\b.*?(\S+)$", output("readelf", "-W", "--dyn-syms", library), re.M)


def hardening(library):
    """What is missing of: relocations read-only, all bound at load, no code on the stack."""
    dynamic = output("readelf", "-W", "-d", library)
    segments = output("readelf", "-W", "-l", library)
    wrong = []
    if "GNU_RELRO" not in segments:
        wrong.append("no RELRO segment")
    if not re.search(r"\bBIND_NOW\b|FLAGS_1\).*\bNOW\b", dynamic):
        wrong.append("not bound at load (BIND_NOW)")
    if re.search(r"\bTEXTREL\b", dynamic):
        wrong.append("relocations in code (TEXTREL)")
    stack = re.search(r"GNU_STACK.*", segments)
    if not stack or "RWE" in stack.group():
        wrong.append("executable stack")
    return wrong


def without_landing_pad(library):
    """Exported functions that do not begin with the mark that an indirect call may come to.

    The linker's note does not show it: the linker drops the note because the C library's own start files lack it.
    """
    code = output("objdump", "-d", "--no-show-raw-insn", library)
    marked = set(re.findall(r"(?m)^([0-9a-f]{16}) <.+>:\n.*\bendbr64\b", code))
    symbols = [line.split() for line in output("nm", "-D", "--defined-only", library).splitlines()]
    return sorted(name for address, kind, name in symbols if kind in "TW" and address not in marked)


def check(library, exports, needed, run_path, control_flow):
    complaints = []
    if exports is not None and exported(library) != exports:
        complaints.append(f"exports {sorted(exported(library))}, not {sorted(exports)}")
    if unique_symbols(library):
        complaints.append(f"unique symbols pin it in memory: {unique_symbols(library)}")
    dynamic = output("readelf", "-W", "-d", library)
    linked = re.findall(r"\(NEEDED\).*\[([^\]]+)\]", dynamic)
    for name in sorted(needed):
        if not any(entry.startswith(name) for entry in linked):
            complaints.append(f"is not linked to {name} but to {linked}")
    paths = re.findall(r"\((RUNPATH|RPATH)\).*\[([^\]]*)\]", dynamic)
    if run_path is not None and paths != [("RUNPATH", run_path)]:
        complaints.append(f"run path is {paths}, not {run_path}")
    if control_flow and without_landing_pad(library):
        complaints.append(f"no landing pad (endbr64) in {without_landing_pad(library)}")
    return [f"{os.path.basename(library)}: {text}" for text in complaints + hardening(library)]


def self_test(compiler):
    """A library wrong in every way, built here, has to draw every complaint."""
    source = """
        extern "C" __attribute__((visibility("default"))) void CreateObject() {}
        template <class T> struct A { static int n; };
        template <class T> int A<T>::n = 0;
        int Use() { return ++A<int>::n; }
    """
    with tempfile.TemporaryDirectory(prefix="tevmon-layout-") as folder:
        library = os.path.join(folder, "bad.so")
        subprocess.run([compiler, "-x", "c++", "-", "-shared", "-fPIC", "-fgnu-unique",
                        "-fcf-protection=none", "-Wl,-z,lazy,-z,norelro,-z,execstack",
                        "-Wl,-rpath,/opt", "-o", library],
                       input=source, text=True, check=True)
        complaints = "\n".join(check(library, FOUR, {"libjsoncpp.so"}, "$ORIGIN", True))
    expected = ["exports", "unique symbols", "is not linked to libjsoncpp.so", "run path",
                "no landing pad", "no RELRO", "not bound at load", "executable stack"]
    return [f"the bad library draws no '{text}': {complaints}" for text in expected
            if text not in complaints]


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("libraries", nargs="*", help="the built libtevmon.so, libhostframework.so")
    parser.add_argument("--control-flow", action="store_true",
                        help="expect the landing pads of -fcf-protection too")
    parser.add_argument("--self-test", metavar="COMPILER",
                        help="build a bad library with this compiler and check that, instead")
    arguments = parser.parse_args()
    if arguments.self_test:
        complaints = self_test(arguments.self_test)
    else:
        if not arguments.libraries:
            parser.error("no library named")
        complaints = []
        for library in arguments.libraries:
            expected = EXPECTED[os.path.basename(library)]
            complaints += check(library, *expected, arguments.control_flow)
    print("\n".join(complaints + [f"{len(complaints)} complaints"]))
    sys.exit(1 if complaints else 0)


if __name__ == "__main__":
    main()
