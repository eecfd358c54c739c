#!/usr/bin/env python3
"""Holds the schemas of docs/schema to the examples of docs/messages.md and to the recordings.

Usage: message_schemas.py SOURCE_DIR
       message_schemas.py --self-test SOURCE_DIR   messages that each schema has to refuse
Exit code 0: all as they should be; 1: not, said on standard error; 2: wrong use.
"""

import json
import pathlib
import re
import sys

import jsonschema


def refused():
    tagged = {"grup": "cloudquery", "context": "cloudad", "path": "/bin/sh"}
    operation = {"grup": "cloudquery", "context": "cloudfd", "path": "/a", "optertion": "create",
                 "exe_path": "/bin/sh"}
    return [
        ("launches", []),
        ("launches", {}),
        ("launches", {"param": []}),
        ("launches", {"param": [tagged, tagged]}),
        ("launches", {"param": [dict(tagged, path=1)]}),
        ("launches", {"param": [dict(tagged, pid=2**31)]}),
        ("launches", {"param": [operation]}),
        ("file-operations", {"param": [tagged]}),
        ("file-operations", {"param": [dict(operation, optertion="delete")]}),
        ("file-operations", {"param": [dict(operation, ino=2**31)]}),
        ("file-operations", {"param": [{"path": "/a"}, operation]}),
        ("cloud-result", {"msg_type": "cloudq", "param": {"context": "k"}}),
        ("cloud-result", {"msg_type": "cloudqr", "param": {}}),
        ("cloud-result", {"msg_type": "cloudqr", "param": {"context": "k", "result": 10}}),
    ]


def accepted(root):
    page = (root / "docs/messages.md").read_text()
    for mark, schema in (("in 20002 launches", "launches"),
                         ("in 20002 file-operations", "file-operations"),
                         ("in 20003 verdict", "cloud-result")):
        block = re.search(f"<!-- {mark} -->\n```json\n(.*?)\n```", page, re.S)
        yield schema, json.loads(block.group(1))
    for name, schema in (("launches", "launches"), ("fileops", "file-operations")):
        for line in (root / f"tests/data/{name}.jsonl").read_text().splitlines():
            yield schema, json.loads(line)


def main():
    arguments = sys.argv[1:]
    if not arguments or arguments[0] in ("-h", "--help"):
        print(__doc__)
        return 0 if arguments else 2
    self_test = arguments[0] == "--self-test"
    root = pathlib.Path(arguments[-1])
    failures = count = 0
    for name, message in refused() if self_test else accepted(root):
        schema = json.loads((root / f"docs/schema/{name}.schema.json").read_text())
        validator = jsonschema.Draft202012Validator(schema)
        valid = validator.is_valid(message)
        count += 1
        if valid == self_test:
            failures += 1
            print(f"{name}: {'accepts' if valid else 'refuses'} {json.dumps(message)}",
                  file=sys.stderr)
    print(f"{count} messages, {failures} not as they should be")
    return 1 if failures or not count else 0


if __name__ == "__main__":
    sys.exit(main())
