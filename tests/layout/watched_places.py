#!/usr/bin/env python3
"""The host watches the places in which the module looks at file operations: the same list.

The host may not include the module's table, so it has one of its own; both are compared by text.
"""

import re

import layout

MODULE, HOST = "tevmon/core/AutoRunLocations.cpp", "host/event/WatchedPaths.cpp"
PLACE = re.compile(r'\{?"(/[^"]*/)"(?:, (?:"(\w+)"|nullptr))?\}?')


def places(text, *tables):
    """Pairs of place and suffix ("" for none) in these tables, in the order of the text."""
    found = []
    for table in tables:
        match = re.search(rf"\b{table}\b[^=;]*= \{{(.*?)\n?\}};", text, re.DOTALL)
        found += PLACE.findall(match.group(1)) if match else []
    return found


def check(root, _arguments):
    module = places(layout.read(root, MODULE), "AUTORUN_LOCATIONS", "UNIT_LOCATIONS")
    host = places(layout.read(root, HOST), "PLACES")
    complaints = [f"{HOST}: has not the module's place {place} {suffix}".rstrip()
                  for place, suffix in module if (place, suffix) not in host]
    complaints += [f"{HOST}: {place} {suffix}".rstrip() + " is no place of the module"
                   for place, suffix in host if (place, suffix) not in module]
    if not module or not host:
        complaints.append(f"{MODULE if not module else HOST}: no table of places found")
    return complaints


def tree(host):
    return {MODULE: 'const char* AUTORUN_LOCATIONS[] = {\n    "/a/", "/b/",\n    "/a/",\n};\n'
                    'constexpr UnitLocation UNIT_LOCATIONS[] = {\n    {"/u/", "service"},\n};\n',
            HOST: "const std::vector<WatchedPaths::Place> PLACES = {\n" + host + "\n};\n"}


A, B, U = '{"/a/", nullptr},', '{"/b/", nullptr},', '{"/u/", "service"},'
GOOD = [tree(A + B + U)]
BAD = [
    (tree(A + U), "has not the module's place /b/"),
    (tree(A + B + '{"/u/", nullptr},'), "has not the module's place /u/ service"),
    (tree(A + B + U + '{"/c/", nullptr},'), "/c/ is no place of the module"),
    (tree(""), "no table of places found"),
]

if __name__ == "__main__":
    layout.run(__doc__, check, GOOD, BAD)
