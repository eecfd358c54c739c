#!/usr/bin/env python3
"""Every source file has its unit test at the same path below tests/unit, and the other way round.

What only the whole program shows is tested at the same path below tests/system.
"""

import layout

PRODUCTS = ("framework", "utils", "public", "tevmon", "host")
UNIT, SYSTEM = "tests/unit", "tests/system"

# source -> why it has no test of its own there
WITHOUT = {
    "host/main.cpp": "a call and a return; tests/system runs the program",
    "framework/digest/DigestBlocksPortable.cpp": "DigestPair_test takes every path",
    "framework/digest/DigestBlocksAvx2.cpp": "DigestPair_test takes every path",
    "framework/digest/DigestBlocksSha.cpp": "DigestPair_test takes every path",
}
# Sources of which nothing shows but by the whole program: their test is the one below tests/system.
WHOLE_PROGRAM = {
    "host/command/RunArguments.cpp",
    "host/command/RunCommands.cpp",
    "host/run/RunSession.cpp",
}


def tests_below(root, top, under):
    """Source without its suffix -> test, of all tests below top/under."""
    return {
        test[len(top) + 1 :].removesuffix("_test.cpp"): test
        for test in layout.files(root, (".cpp",), f"{top}/{under}")
    }


def check(root, _arguments):
    complaints = []
    sources = [path for top in PRODUCTS for path in layout.files(root, layout.CPP, top)]
    unit = tests_below(root, UNIT, "")
    system = tests_below(root, SYSTEM, "host")
    for path in sources:
        stem, _, suffix = path.rpartition(".")
        if suffix == "cpp" and path not in WITHOUT:
            top, tests = (SYSTEM, system) if path in WHOLE_PROGRAM else (UNIT, unit)
            if stem not in tests:
                complaints.append(f"{path}: has no {top}/{stem}_test.cpp")
    for stem, test in sorted([*unit.items(), *system.items()]):
        # A class with more tests than one file holds has X_<side>_test.cpp beside X_test.cpp.
        stems = (stem, stem.rpartition("_")[0])
        if not any(f"{each}.{suffix}" in sources for each in stems for suffix in ("cpp", "h")):
            complaints.append(f"{test}: tests nothing, there is no {stem}.cpp or {stem}.h")
    for path in [*WITHOUT, *WHOLE_PROGRAM]:
        if path in sources and path[:-4] in unit:
            complaints.append(f"{path}: has a test, so it is no exception")
    return complaints


GOOD = [
    {"utils/a.cpp": "", "utils/a.h": "", "tests/unit/utils/a_test.cpp": ""},
    {"framework/base/only.h": "", "tests/unit/framework/base/only_test.cpp": ""},
    {"utils/a.h": "", "tests/unit/utils/a_test.cpp": "", "tests/unit/utils/a_side_test.cpp": ""},
    {"host/main.cpp": "", "tests/system/a_test.cpp": ""},
    {"host/run/RunSession.cpp": "", "tests/system/host/run/RunSession_test.cpp": ""},
    {
        "host/base/A.cpp": "",
        "tests/unit/host/base/A_test.cpp": "",
        "tests/system/host/base/A_test.cpp": "",
    },
]
BAD = [
    ({"tevmon/core/A.cpp": ""}, "has no tests/unit/tevmon/core/A_test.cpp"),
    ({"host/base/A.cpp": "", "tests/unit/host/A_test.cpp": ""}, "has no tests/unit/host/base/A"),
    ({"tests/unit/utils/gone_test.cpp": ""}, "tests nothing"),
    ({"tests/system/host/run/gone_test.cpp": ""}, "tests nothing"),
    (
        {"host/base/A.cpp": "", "tests/system/host/base/A_test.cpp": ""},
        "has no tests/unit/host/base/A_test.cpp",
    ),
    ({"host/run/RunSession.cpp": ""}, "has no tests/system/host/run/RunSession_test.cpp"),
    (
        {
            "host/run/RunSession.cpp": "",
            "tests/system/host/run/RunSession_test.cpp": "",
            "tests/unit/host/run/RunSession_test.cpp": "",
        },
        "no exception",
    ),
    ({"host/main.cpp": "", "tests/unit/host/main_test.cpp": ""}, "no exception"),
]

if __name__ == "__main__":
    layout.run(__doc__, check, GOOD, BAD)
