#!/usr/bin/env python3
"""Inside tevmon/core a class includes classes of lower rank only, so that no call goes up."""

import pathlib
import re

import layout

CORE = "tevmon/core"

# rank -> its files, by name without suffix. A new file is refused until it is placed here.
RANKS = {
    11: ["PluginExports"],
    10: ["CTevMonPlugin"],
    9: ["CTevMonIpcRecever", "CTevMonTimer"],
    8: ["CTevMonIpcMsgHandler"],
    7: ["CTevChennalMgr"],
    6: ["CTevPsMonitor", "CTevFsMonitor"],
    5: ["CTevCloudCachoMgr", "CTevCloudInterface"],
    4: ["CTevChennalDB", "CTevCloudCachoDB"],
    3: ["CTevStore"],
    2: ["CTevCallGate", "CTevModuleReference"],  # the life of the module in its host
    1: ["CUserPathMasker", "EventHelpers", "AutoRunLocations"],  # of users, programs and places
    0: ["IMsgFunc", "FsOpEvent", "CachoRecord", "CEventText"],  # what is handed from one to another
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
    (using("CTevChennalDB.cpp", "CTevChennalMgr.h"), "rank 4 includes CTevChennalMgr of rank 7"),
    (using("CTevPsMonitor.h", "CTevFsMonitor.h"), "rank 6 includes CTevFsMonitor of rank 6"),
    (using("CNewThing.h"), "has no rank"),
    (using("CTevMonPlugin.cpp", "CNewThing.h"), "of rank None"),
]

if __name__ == "__main__":
    layout.run(__doc__, check, GOOD, BAD)
