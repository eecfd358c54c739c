#!/usr/bin/env python3
"""Inside tevmon/core a class includes classes of lower rank only, so that no call goes up."""

import pathlib
import re

import layout

CORE = "tevmon/core"

# rank -> its files, by name without suffix. A new file is refused until it is placed here.
RANKS = {
    8: ["PluginExports"],
    7: ["CTevMonPlugin"],
    6: ["CTevMonIpcRecever", "CTevMonTimer"],
    5: ["CTevMonIpcMsgHandler"],
    4: ["CTevChennalMgr"],
    3: ["CTevPsMonitor", "CTevFsMonitor"],
    2: ["CTevCloudCachoMgr", "CTevCloudInterface"],
    1: ["CTevChennalDB", "CTevCloudCachoDB"],
    0: ["IMsgFunc", "CUserPathMasker", "EventHelpers", "CEventText", "AutoRunLocations", "CTevStore",
        "CachoRecord", "CTevCallGate", "CTevModuleReference", "FsOpEvent"],
}
RANK_OF = {name: rank for rank, names in RANKS.items() for name in names}
INCLUDE = re.compile(rf'^\s*#\s*include\s*"{CORE}/([^"]+)"')


def check(root, _arguments):
    complaints = []
    for path in layout.files(root, layout.CPP, CORE):
        name = pathlib.PurePath(path).stem
        rank = RANK_OF.get(name)
        if rank is None:
            complaints.append(f"{path}: has no rank; place it in RANKS of core_ranks.py")
            continue
        for number, line in enumerate(layout.read(root, path).splitlines(), 1):
            match = INCLUDE.match(line)
            other = pathlib.PurePath(match.group(1)).stem if match else name
            if other == name:
                continue
            if RANK_OF.get(other, rank) >= rank:
                complaints.append(f"{path}:{number}: rank {rank} includes {other} "
                                  f"of rank {RANK_OF.get(other)}")
    return complaints


def using(path, *names):
    return {f"{CORE}/{path}": "".join(f'#include "{CORE}/{name}"\n' for name in names)}


GOOD = [
    using("CTevChennalMgr.cpp", "CTevChennalMgr.h", "CTevPsMonitor.h", "CTevChennalDB.h"),
    using("PluginExports.cpp", "CTevMonPlugin.h"),
]
BAD = [
    (using("CTevChennalDB.cpp", "CTevChennalMgr.h"), "rank 1 includes CTevChennalMgr of rank 4"),
    (using("CTevPsMonitor.h", "CTevFsMonitor.h"), "rank 3 includes CTevFsMonitor of rank 3"),
    (using("CNewThing.h"), "has no rank"),
    (using("CTevMonPlugin.cpp", "CNewThing.h"), "of rank None"),
]

if __name__ == "__main__":
    layout.run(__doc__, check, GOOD, BAD)
