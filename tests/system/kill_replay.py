#!/usr/bin/env python3
"""Kills the host with SIGKILL while it delivers a recording and checks that nothing it had taken is lost.

Usage: kill_replay.py HOST [--messages N] [--kill-after K]

Every message reports one program of its own. After K deliveries had returned (each says so with one
JSON record), the host is killed; a second run on the same state directory, with an empty recording,
drains the queue. Every message whose delivery had returned must have led to a query in one of the
runs. Prints one line of counts. Exit code 0: so it was; 1: not; 2: wrong use.
"""

import argparse
import json
import pathlib
import signal
import subprocess
import sys
import tempfile


def host(args, state, recording):
    return [args.host, "replay", "--json", "--no-packages", "--state-dir", str(state), "--drain",
            str(recording)]


def queries(records):
    return [pathlib.Path(record["path"]).name for record in records if record["event"] == "query"]


def killed_run(args, state, recording):
    records = []
    with subprocess.Popen(host(args, state, recording), stdout=subprocess.PIPE,
                          stderr=subprocess.DEVNULL) as process:
        for line in process.stdout:
            if not line.endswith(b"\n"):
                break
            records.append(json.loads(line))
            if records[-1]["event"] == "delivered" and records[-1]["line"] == args.kill_after:
                process.send_signal(signal.SIGKILL)
    if process.returncode != -signal.SIGKILL:
        sys.exit(f"the host ended by itself with {process.returncode} before it could be killed")
    return records


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("host")
    parser.add_argument("--messages", type=int, default=2000)
    parser.add_argument("--kill-after", type=int, default=1000)
    args = parser.parse_args()
    with tempfile.TemporaryDirectory(prefix="tevmon-kill-") as folder:
        root = pathlib.Path(folder)
        recording = root / "recording.jsonl"
        with recording.open("w") as lines:
            for number in range(1, args.messages + 1):
                program = root / "programs" / str(number)
                program.parent.mkdir(exist_ok=True)
                program.write_text(f"#!/bin/false\n{number}\n")
                lines.write(json.dumps({"param": [{"grup": "cloudquery", "context": "cloudad",
                                                   "path": str(program)}]}) + "\n")
        empty = root / "empty.jsonl"
        empty.touch()
        first = killed_run(args, root / "state", recording)
        second_run = subprocess.run(host(args, root / "state", empty), capture_output=True, check=True)
        second = [json.loads(line) for line in second_run.stdout.splitlines()]
    taken = {str(record["line"]) for record in first if record["event"] == "delivered"}
    asked = queries(first) + queries(second)
    lost = taken - set(asked)
    print(f"{args.messages} messages, {len(taken)} deliveries had returned at the kill, "
          f"{len(queries(first))} analysed before it and {len(queries(second))} after, "
          f"{len(lost)} lost, {len(asked) - len(set(asked))} analysed twice, "
          f"{second[-1]['queue_depth']} left in the queue")
    return 1 if lost or second[-1]["queue_depth"] != 0 or len(taken) < args.kill_after else 0


if __name__ == "__main__":
    sys.exit(main())
