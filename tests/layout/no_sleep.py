#!/usr/bin/env python3
"""Tests wait on events or on a clock of their own; none sleeps and hopes."""

import re

import layout

CPP_SLEEP = re.compile(r"\b(sleep_for|sleep_until|u?sleep|nanosleep|clock_nanosleep|"
                       r"sched_yield|yield)\s*\(")
SCRIPT_SLEEP = re.compile(r"(^|[;&|]|\bdo|\bthen|\btime\.)\s*sleep\b\s*[(\d$\"]")

# file -> why its pauses wait for nothing
PACED = {
    "tests/live/spawner.c": "starts programs at a rate",
    "tests/live/toucher.c": "makes files at a rate",
}


def check(root, _arguments):
    complaints = []
    for path in layout.files(root, layout.CPP + (".py", ".sh"), "tests"):
        if path in PACED:
            continue
        text = layout.read(root, path)
        cpp = path.endswith(layout.CPP)
        pattern = CPP_SLEEP if cpp else SCRIPT_SLEEP
        for number, line in enumerate((layout.code_only(text) if cpp else text).splitlines(), 1):
            if pattern.search(line):
                complaints.append(f"{path}:{number}: sleeps: {line.strip()}")
    return complaints


GOOD = [
    {"tests/a.cpp": '// no sleep( here\nRun("sleep(1)"); cond.wait_for(lock, limit, ready);\n'},
    {"tests/a.py": 'subprocess.run(["sleep", "60"], timeout=1)\n'},
    {"framework/base/CThread.cpp": "usleep(1);\n"},
    {"tests/live/spawner.c": "nanosleep(&pause, NULL);\n"},
]
BAD = [
    ({"tests/a.cpp": "std::this_thread::sleep_for(1s);\n"}, "sleeps"),
    ({"tests/unit/a_test.cpp": "    usleep (5);\n"}, "sleeps"),
    ({"tests/support/a.h": "inline void W() { ::sleep(1); }\n"}, "sleeps"),
    ({"tests/system/a.py": "    time.sl" "eep(0.1)\n"}, "sleeps"),
    ({"tests/system/a.sh": "start & sl" "eep 1\n"}, "sleeps"),
]

if __name__ == "__main__":
    layout.run(__doc__, check, GOOD, BAD)
