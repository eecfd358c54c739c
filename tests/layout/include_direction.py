#!/usr/bin/env python3
"""Every include of ours is written from the root and points to a folder the includer may use."""

import pathlib
import re

import layout

ABI, BASE, DIGEST = "framework/abi", "framework/base", "framework/digest"
SQLITE, LOG = "framework/sqlite", "framework/log"
HELPER, CORE = "public/pluginhelper", "tevmon/core"
MODULE = {"utils": {ABI, BASE}, HELPER: {"framework", "utils"},
          CORE: {"framework", "utils", HELPER}}
SUPPORT = "tests/support"
HOST_SUPPORT = "tests/support/host"  # fakes of the host's interfaces, for its own tests


def rooms():
    """The rooms of the host: what each may include of the others, all of them the framework."""
    base, process, transport = "host/base", "host/process", "host/transport"
    database, verdict, cloud = "host/database", "host/verdict", "host/cloud"
    event, module, account = "host/event", "host/module", "host/account"
    bpf, launch, file = "host/kernel/bpf", "host/kernel/launch", "host/kernel/file"
    connector, program = "host/kernel/connector", "host/program"
    script, container = "host/kernel/script", "host/kernel/container"
    shown = {base, program, verdict, cloud, event, module, account, launch}
    table = {
        base: set(),
        process: {base},
        transport: {base},
        program: {base},
        database: {base},
        verdict: {base},
        cloud: {base, transport, database, verdict},
        event: {base, program},
        module: {base, program, event},
        bpf: set(),
        script: {base, program},
        container: {base, program},
        launch: {base, process, program, event, bpf, script, container},
        connector: {base, process, program, launch},
        file: {base, process, program, event, launch},
        "host/kernel": {base, process, program, event},
        account: {base, program, verdict, cloud, event, module, launch},
        "host/report/text": shown,
        "host/report/screen": {base, verdict, "host/report/text"},
        "host/report/metrics": {base, verdict, account},
        "host/report": shown,
        "host/doctor": {base, process, database, verdict, event, module, "host/kernel"},
    }
    table["host/run"] = {*table, "host/report"} - {"host/doctor"}
    table["host/command"] = {*table, "host/run"}
    return {room: allowed | {"framework"} for room, allowed in table.items()}


# folder -> what it may include besides itself; a folder named here stands for all below it.
TABLE = {
    ABI: set(),
    BASE: {ABI},
    DIGEST: {ABI, BASE},
    SQLITE: set(),
    LOG: {ABI, BASE, DIGEST},
    **MODULE,
    **rooms(),
    "cmake": set(),
    SUPPORT: {"framework"},
    HOST_SUPPORT: {"framework", "host", SUPPORT},
    # A host of another maker has none of our headers.
    "tests/abi": {SUPPORT},
    # The side of the slot tests that has them.
    "tests/abi/ours": {SUPPORT, "framework", *MODULE},
    "tests/system": {"framework", "utils", HELPER, SUPPORT},
    "tests/live": {"framework", SUPPORT},
    "tests/faults": {"framework", SUPPORT, *MODULE},
    "tests/hostile": {"framework", SUPPORT, *MODULE},
    "tests/stress": {"framework", SUPPORT},
}

# What the tests of a folder may use besides.
TESTS_TOO = {"host/kernel/launch": {"host/kernel"}}  # launches are driven by the source of both kinds

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')
OURS = ("framework/", "utils/", "public/", "tevmon/", "host/", "tests/", "bench/", "fuzz/")


ROOM_ROW = re.compile(r"^\| `([a-z/]+)` \| [^|]+ \|([^|]*)\|$", re.MULTILINE)


def differences_of_document(text):
    """Where the table of rooms in ARCHITECTURE.md says other than this one."""
    complaints = []
    rows = ROOM_ROW.findall(text[text.find("\n| room |") :])
    documented = {name: allowed.strip() for name, allowed in rows}
    for room, allowed in rooms().items():
        name = room.removeprefix("host/")
        if name not in documented:
            complaints.append(f"ARCHITECTURE.md: no room `{name}`")
            continue
        words = re.findall(r"`([a-z/*]+)`", documented[name])
        if documented[name].startswith("all above"):
            continue
        said = {word for word in words if not word.startswith(f"{name}/")}
        meant = {other.removeprefix("host/") for other in allowed - {"framework"}}
        if said != meant:
            complaints.append(f"ARCHITECTURE.md: `{name}` differs in {sorted(said ^ meant)}")
    return complaints


def within(path, folder):
    return path == folder or path.startswith(folder + "/")


def folder_of(path):
    """The longest folder of the table that the file stands in, or None."""
    fitting = [folder for folder in TABLE if within(path, folder)]
    return max(fitting, key=len) if fitting else None


def allowed_for(path):
    """What the file may include, its own folder among it; None for a file outside the layout."""
    for mirror in ("tests/unit", "bench"):
        if within(path, mirror):
            tested = folder_of(path[len(mirror) + 1 :])
            # A test or benchmark may use what the tested thing may, and the tested thing.
            allowed = {mirror, SUPPORT, tested} | TABLE[tested] if tested else {mirror, SUPPORT}
            if tested and within(tested, "host"):
                allowed.add(HOST_SUPPORT)
            return allowed | TESTS_TOO.get(tested, set())
    if within(path, "fuzz"):
        return {"fuzz", SUPPORT, "framework", *MODULE, "host"}
    if path == "host/main.cpp":
        return {"host/command"}
    folder = folder_of(path)
    return None if folder is None else {folder} | TABLE[folder]


def may_use(name, allowed):
    """Whether a row allows the file; what is for the host's tests only has to be in it by name."""
    if within(name, HOST_SUPPORT):
        return HOST_SUPPORT in allowed
    return any(within(name, folder) for folder in allowed)


def check(root, _arguments):
    complaints = []
    for path in layout.files(root, layout.CPP):
        allowed = allowed_for(path)
        if allowed is None:
            complaints.append(f"{path}: stands outside the folders of the layout")
            continue
        for number, line in enumerate(layout.read(root, path).splitlines(), 1):
            match = INCLUDE.match(line)
            if not match:
                continue
            where, name = f"{path}:{number}", match.group(2)
            if match.group(1) == "<":
                if name.startswith(OURS):
                    complaints.append(f'{where}: our own header is written in "": {name}')
                continue
            if not name.startswith(OURS) or ".." in name.split("/"):
                complaints.append(f"{where}: not written from the root of the tree: {name}")
            elif not may_use(name, allowed):
                complaints.append(f"{where}: this folder may not use {name}")
    if pathlib.Path(root, "ARCHITECTURE.md").exists():
        complaints += differences_of_document(layout.read(root, "ARCHITECTURE.md"))
    return complaints


def using(path, name):
    return {path: f'#include "{name}"\n'}


GOOD = [
    using("framework/base/A.cpp", "framework/abi/Guid.h"),
    using("tevmon/core/A.h", "public/pluginhelper/A.h"),
    using("host/kernel/A.cpp", "host/kernel/launch/B.h"),
    using("host/main.cpp", "host/command/HostMain.h"),
    using("tests/unit/host/cloud/A_test.cpp", "host/transport/Router.h"),
    using("tests/unit/tevmon/core/A_test.cpp", "tevmon/core/A.h"),
    using("tests/unit/host/kernel/A_test.cpp", "tests/support/host/B.h"),
    using("tests/support/host/A.h", "host/kernel/launch/B.h"),
    using("bench/framework/base/A_bench.cpp", "framework/base/A.h"),
    {"host/base/A.cpp": "#include <string>\n#include <sqlite3.h>\n"},
]
BAD = [
    (using("framework/abi/A.h", "framework/base/B.h"), "may not use"),
    (using("framework/base/A.h", "framework/log/CLog.h"), "may not use"),
    (using("framework/base/A.h", "framework/digest/B.h"), "may not use"),
    (using("framework/digest/A.h", "framework/log/B.h"), "may not use"),
    (using("framework/sqlite/A.h", "framework/abi/Guid.h"), "may not use"),
    (using("framework/log/A.h", "utils/time_utils.h"), "may not use"),
    (using("utils/A.h", "framework/log/CLog.h"), "may not use"),
    (using("public/pluginhelper/A.h", "tevmon/core/B.h"), "may not use"),
    (using("tevmon/core/A.cpp", "host/B.h"), "may not use"),
    (using("host/run/A.cpp", "tevmon/core/B.h"), "may not use"),
    (using("host/run/A.cpp", "public/pluginhelper/B.h"), "may not use"),
    (using("host/run/A.cpp", "utils/time_utils.h"), "may not use"),
    # One refusal for each room of the host.
    (using("host/A.cpp", "framework/abi/Guid.h"), "outside the folders"),
    (using("host/main.cpp", "host/run/RunSession.h"), "may not use"),
    (using("host/base/A.cpp", "host/process/B.h"), "may not use"),
    (using("host/process/A.cpp", "host/report/screen/B.h"), "may not use"),
    (using("host/transport/A.cpp", "host/cloud/B.h"), "may not use"),
    (using("host/database/A.cpp", "host/module/B.h"), "may not use"),
    (using("host/verdict/A.cpp", "host/database/B.h"), "may not use"),
    (using("host/cloud/A.cpp", "host/account/B.h"), "may not use"),
    (using("host/event/A.cpp", "host/module/B.h"), "may not use"),
    (using("host/module/A.cpp", "host/account/B.h"), "may not use"),
    (using("host/kernel/bpf/A.h", "host/base/B.h"), "may not use"),
    (using("host/kernel/script/A.cpp", "host/kernel/launch/B.h"), "may not use"),
    (using("host/kernel/launch/A.cpp", "host/kernel/file/B.h"), "may not use"),
    (using("host/kernel/connector/A.cpp", "host/event/B.h"), "may not use"),
    (using("host/kernel/file/A.cpp", "host/kernel/B.h"), "may not use"),
    (using("host/kernel/A.cpp", "host/account/B.h"), "may not use"),
    (using("host/account/A.cpp", "host/report/B.h"), "may not use"),
    (using("host/report/text/A.cpp", "host/report/B.h"), "may not use"),
    (using("host/report/screen/A.cpp", "host/report/metrics/B.h"), "may not use"),
    (using("host/report/metrics/A.cpp", "host/report/text/B.h"), "may not use"),
    (using("host/report/A.cpp", "host/run/B.h"), "may not use"),
    (using("host/doctor/A.cpp", "host/run/B.h"), "may not use"),
    (using("host/run/A.cpp", "host/doctor/B.h"), "may not use"),
    (using("host/command/A.cpp", "host/main.h"), "may not use"),
    (using("tests/abi/a_test.cpp", "framework/abi/Guid.h"), "may not use"),
    (using("tests/abi/ours/a.cpp", "host/transport/Router.h"), "may not use"),
    (using("tests/system/a_test.cpp", "tevmon/core/B.h"), "may not use"),
    (using("tests/unit/host/A_test.cpp", "tevmon/core/B.h"), "may not use"),
    (using("tests/unit/host/run/A_test.cpp", "tests/system/host/HostProgram.h"), "may not use"),
    (using("tests/unit/framework/base/A_test.cpp", "utils/B.h"), "may not use"),
    (using("tests/unit/tevmon/core/A_test.cpp", "tests/support/host/B.h"), "may not use"),
    (using("tests/system/a_test.cpp", "tests/support/host/B.h"), "may not use"),
    (using("tests/support/A.h", "tests/support/host/B.h"), "may not use"),
    (using("tests/support/A.h", "host/base/B.h"), "may not use"),
    (using("tests/support/host/A.h", "tevmon/core/B.h"), "may not use"),
    (using("tevmon/core/A.cpp", "A.h"), "not written from the root"),
    (using("tevmon/core/A.cpp", "tevmon/core/../../host/B.h"), "not written from the root"),
    ({"host/base/A.cpp": "#include <framework/abi/Guid.h>\n"}, "our own header"),
    ({"extra/A.cpp": ""}, "outside the folders"),
    ({"ARCHITECTURE.md": "\n| room | holds | may use |\n| `base` | texts | `event` |\n"}, "differs in"),
    ({"ARCHITECTURE.md": "\n| room | holds | may use |\n"}, "no room `base`"),
]

if __name__ == "__main__":
    layout.run(__doc__, check, GOOD, BAD)
