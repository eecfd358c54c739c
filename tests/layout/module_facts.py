#!/usr/bin/env python3
"""What the host knows of the module's inside stands in one file, and the module still has it.

The host may not include the module's headers, so its facts are compared by text: every word of FACTS
stands in a text of the module, both have the same lifetimes and numbers, and no other file of the host
spells one of the words out, except words that are COMMON.
"""

import re

import layout

FACTS, LIFETIMES = "host/base/ModuleFacts.h", "host/base/ModuleFacts.cpp"
MODULE_LIFETIMES = "tevmon/core/CTevCloudCachoMgr.cpp"
MODULE = ("tevmon/core", "public/pluginhelper")
WORD = re.compile(r'constexpr char (\w+)\[\] = "([^"]*)";')
# A comment, a raw text (group 2), a text (group 3) or a character.
TOKEN = re.compile(
    r'//[^\n]*|/\*.*?\*/|R"(\w*)\((.*?)\)\1"|"((?:[^"\\\n]|\\.)*)"|' r"'(?:[^'\\]|\\.)'", re.DOTALL)
ARRAY = re.compile(r"constexpr const char\* (\w+)\[\] = \{(.*?)\};", re.DOTALL)
COMMON = {"id", "level", "detail"}  # the host has things of its own that are called so
NUMBER = re.compile(r"constexpr int (\w+) = (\d+);")
MODULE_NUMBERS = {  # what the module calls them
    "ANALYSER_LAUNCHES": ("tevmon/core/CTevChennalMgr.h", "MID_PROCESS"),
    "ANALYSER_FILES": ("tevmon/core/CTevChennalMgr.h", "MID_FILE"),
    "QUEUE_LOOK_MS": ("tevmon/core/CTevChennalMgr.cpp", "DRAIN_INTERVAL_MS"),
}
LIFETIME = re.compile(r"constexpr int64_t (LIFETIME_\w+) = ([\d *]+);")


def texts(root, folder):
    """(path, text) of every text below folder."""
    for path in layout.files(root, layout.CPP, folder):
        for match in TOKEN.finditer(layout.read(root, path)):
            if match.lastindex:
                yield path, match.group(match.lastindex)


def words_of(text):
    """(name, word) of every fact that is a word."""
    return WORD.findall(text) + [(name, word) for name, words in ARRAY.findall(text)
                                 for word in re.findall(r'"([^"]*)"', words)]


def wrong_numbers(root):
    """Names of the facts that are numbers and no number of the module."""
    for name, value in NUMBER.findall(layout.read(root, FACTS)):
        path, other = MODULE_NUMBERS.get(name, (FACTS, "nothing"))
        if not re.search(rf"\b{other} = {value};", layout.read(root, path)):
            yield name


def lifetimes(root, path):
    return dict(LIFETIME.findall(layout.read(root, path)))


def cases(root, path):
    """The level cases of the file's switch, each with what it returns."""
    found, levels = {}, []
    for label, value in re.findall(r"case (\d+):|return (\w+);", layout.read(root, path)):
        if label:
            levels.append(label)
        elif value.startswith("LIFETIME_"):
            found.update(dict.fromkeys(levels, value))
            levels = []
    return found


def check(root, _arguments):
    facts = words_of(layout.read(root, FACTS))
    module = [text for folder in MODULE for _, text in texts(root, folder)]
    complaints = [] if facts else [f"{FACTS}: no facts found"]
    for name, word in facts:
        if not any(re.search(rf"(?<!\w){re.escape(word)}(?!\w)", text) for text in module):
            complaints.append(f"{FACTS}: {name}: the module has no text '{word}'")
    if not lifetimes(root, LIFETIMES) or any(
            of(root, LIFETIMES) != of(root, MODULE_LIFETIMES) for of in (lifetimes, cases)):
        complaints.append(f"{LIFETIMES}: other lifetimes than the module's")
    complaints += [f"{FACTS}: {name}: the module has another number" for name in wrong_numbers(root)]
    words = {word: name for name, word in facts if word not in COMMON}
    complaints += [f"{path}: spells out {words[text]}, which stands in {FACTS}"
                   for path, text in texts(root, "host") if text in words and path != FACTS]
    return complaints


SWITCH = ("constexpr int64_t LIFETIME_A = 2 * 3;\nint64_t F(int n) {\n    switch (n) {\n        case 10:\n"
          "        case 20:\n            return LIFETIME_A;\n        default:\n            return 0;\n    }\n}\n")


def tree(fact="handler===> %s", own="LogPrint(\"handler===> %s\\n\");\n", switch=SWITCH, other="", more=""):
    return {FACTS: f'constexpr char LOG_A[] = "{fact}";\n{more}', LIFETIMES: SWITCH,
            MODULE_LIFETIMES: switch, "tevmon/core/A.cpp": own, "host/run/A.cpp": other,
            "tevmon/core/CTevChennalMgr.h": "constexpr int32_t MID_FILE = 6;\n"}


COLUMNS = 'constexpr const char* COLUMNS[] = {"id",\n "mid"};\n'
CREATE = 'LogPrint("handler===> %s");\nF("create table a(id, mid)");\n'


GOOD = [
    tree(), tree(fact="msgs", own='F("select * from msgs limit 0");\n'),
    tree(fact="cloudq", own='t += R"({"type":"cloudq"})";\n'),
    tree(more=COLUMNS, own=CREATE, other='F("id");\n'),
    tree(more="constexpr int ANALYSER_FILES = 6;\n"),
    tree(other='// "handler===> %s" is known by ModuleFacts\nF("something else");\n'),
]
BAD = [
    (tree(fact="handler==> %s"), "LOG_A: the module has no text"),
    (tree(fact="msgs", own='F("select * from msgsold");\n'), "LOG_A: the module has no text"),
    (tree(own='// LogPrint("handler===> %s");\n'), "LOG_A: the module has no text"),
    (tree(switch=SWITCH.replace("2 * 3", "2 * 4")), "other lifetimes"),
    (tree(switch=SWITCH.replace("case 20", "case 30")), "other lifetimes"),
    (tree(other='F("handler===> %s");\n'), "host/run/A.cpp: spells out LOG_A"),
    (tree(more=COLUMNS, own=CREATE.replace("mid", "m")), "COLUMNS: the module has no text"),
    (tree(more=COLUMNS, own=CREATE, other='F("mid");\n'), "host/run/A.cpp: spells out COLUMNS"),
    (tree(more="constexpr int ANALYSER_FILES = 5;\n"), "ANALYSER_FILES: the module has another"),
    (tree(more="constexpr int OTHER = 6;\n"), "OTHER: the module has another number"),
    ({**tree(), FACTS: ""}, "no facts found"),
]

if __name__ == "__main__":
    layout.run(__doc__, check, GOOD, BAD)
