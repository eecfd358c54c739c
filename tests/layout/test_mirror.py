#!/usr/bin/env python3
"""Every source file has its unit test at the same path below tests/unit, and the other way round."""

import layout

PRODUCTS = ("framework", "utils", "public", "tevmon", "host")

# source -> why it has no test of its own there
WITHOUT = {
    "host/main.cpp": "a call and a return; tests/system runs the program",
    "framework/digest/DigestBlocksPortable.cpp": "DigestPair_test takes every path",
    "framework/digest/DigestBlocksAvx2.cpp": "DigestPair_test takes every path",
    "framework/digest/DigestBlocksSha.cpp": "DigestPair_test takes every path",
}


def check(root, _arguments):
    complaints = []
    sources = [path for top in PRODUCTS for path in layout.files(root, layout.CPP, top)]
    tests = set(layout.files(root, (".cpp",), "tests/unit"))
    for path in sources:
        stem, _, suffix = path.rpartition(".")
        if suffix == "cpp" and path not in WITHOUT and f"tests/unit/{stem}_test.cpp" not in tests:
            complaints.append(f"{path}: has no tests/unit/{stem}_test.cpp")
    for test in sorted(tests):
        stem = test[len("tests/unit/") :].removesuffix("_test.cpp")
        # A class with more tests than one file holds has X_<side>_test.cpp beside X_test.cpp.
        stems = (stem, stem.rpartition("_")[0])
        if not any(f"{each}.{suffix}" in sources for each in stems for suffix in ("cpp", "h")):
            complaints.append(f"{test}: tests nothing, there is no {stem}.cpp or {stem}.h")
    for path in WITHOUT:
        if path in sources and f"tests/unit/{path[:-4]}_test.cpp" in tests:
            complaints.append(f"{path}: has a test, so it is no exception")
    return complaints


GOOD = [
    {"utils/a.cpp": "", "utils/a.h": "", "tests/unit/utils/a_test.cpp": ""},
    {"framework/base/only.h": "", "tests/unit/framework/base/only_test.cpp": ""},
    {"utils/a.h": "", "tests/unit/utils/a_test.cpp": "", "tests/unit/utils/a_side_test.cpp": ""},
    {"host/main.cpp": ""},
]
BAD = [
    ({"tevmon/core/A.cpp": ""}, "has no tests/unit/tevmon/core/A_test.cpp"),
    ({"host/base/A.cpp": "", "tests/unit/host/A_test.cpp": ""}, "has no tests/unit/host/base/A"),
    ({"tests/unit/utils/gone_test.cpp": ""}, "tests nothing"),
    ({"host/main.cpp": "", "tests/unit/host/main_test.cpp": ""}, "no exception"),
]

if __name__ == "__main__":
    layout.run(__doc__, check, GOOD, BAD)
