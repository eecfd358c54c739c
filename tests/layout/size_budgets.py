#!/usr/bin/env python3
"""Files and functions stay within their sizes: a file one reads at a sitting, a function one sees."""

import re

import layout

SOURCE_LINES, SOURCE_WARNING = 600, 400
HEADER_LINES = 200
FUNCTION_LINES = 80
# In a room of the host: a file, all files, and units, a source counted with its header.
ROOM_SOURCE_LINES, ROOM_LINES, ROOM_UNITS = 300, 2600, 15

TYPE_HEAD = re.compile(r"\b(namespace|class|struct|union|enum|extern)\b")


def opens(head):
    """What a brace after this text opens, outside of functions: "scope", "data" or "function"."""
    head = head.strip()
    if head.endswith("="):
        return "data"
    bare = re.sub(r"\([^()]*\)", "()", head)
    if TYPE_HEAD.search(bare) and not bare.endswith((")", "const", "noexcept", "override")):
        return "data" if bare.startswith("enum") else "scope"
    # "m_nA{0}": a member's initial value, not a function; a body that follows such an
    # initialiser list begins with nothing or a comma.
    if "(" not in head and head and not head.startswith((",", ":")):
        return "data"
    return "function"


def functions(text):
    """(first line, last line) of every function body, both counted from 1."""
    code = re.sub(r"(?m)^[ \t]*#(?:.*\\\n)*.*$", lambda match: "\n" * match.group().count("\n"),
                  layout.code_only(text))
    found, stack, head, line, depth = [], [], "", 1, 0
    for character in code:
        if character == "\n":
            line += 1
        if character == "{":
            inside = any(kind != "scope" for kind, _ in stack)
            stack.append(("inner" if inside else opens(head), line))
            head = ""
        elif character == "}":
            if stack:
                kind, first = stack.pop()
                if kind == "function":
                    found.append((first, line))
            head = ""
        elif character == ";" and depth == 0:
            head = ""
        else:
            depth += {"(": 1, ")": -1}.get(character, 0)
            head += character
            # "public:" ends nothing that a brace needs to know of.
            head = re.sub(r"\b(public|protected|private)\s*:\s*$", "", head) if character == ":" else head
    return found


def rooms(root):
    """What is too large in the rooms of the host."""
    complaints, lines, units = [], {}, {}
    for path in layout.files(root, layout.CPP, "host"):
        room, _, name = path.rpartition("/")
        count = layout.read(root, path).count("\n")
        lines[room] = lines.get(room, 0) + count
        units.setdefault(room, set()).add(name.rpartition(".")[0])
        if count > ROOM_SOURCE_LINES:
            complaints.append(f"{path}: {count} lines, {ROOM_SOURCE_LINES} at most in a room")
    complaints += [f"{room}: {count} lines, {ROOM_LINES} at most" for room, count in lines.items()
                   if count > ROOM_LINES]
    return complaints + [f"{room}: {len(names)} units, {ROOM_UNITS} at most" for room, names in units.items()
                         if len(names) > ROOM_UNITS]


def check(root, arguments):
    complaints = rooms(root)
    for path in layout.files(root, layout.CPP):
        text = layout.read(root, path)
        lines = text.count("\n")
        limit = HEADER_LINES if path.endswith((".h", ".hpp")) else SOURCE_LINES
        if lines > limit:
            complaints.append(f"{path}: {lines} lines, {limit} at most")
        elif lines > SOURCE_WARNING and not arguments.self_test:
            print(f"warning: {path}: {lines} lines; look for a second class")
        for first, last in functions(text):
            if last - first + 1 > FUNCTION_LINES:
                complaints.append(f"{path}:{first}: a function of {last - first + 1} lines, "
                                  f"{FUNCTION_LINES} at most")
    return complaints


def function_of(lines, head="int F()"):
    return head + " {\n" + "    ;\n" * (lines - 2) + "}\n"


GOOD = [
    {"a.cpp": function_of(80) + function_of(80)},
    {"a.cpp": "const int kTable[] = {\n" + "    1,\n" * 100 + "};\n"},
    {"a.cpp": "namespace {\n" + function_of(60) + function_of(60) + "}\n"},
    {"a.h": "class A {\npublic:\n" + "    int m_nA{0};\n" * 150 + "};\n"},
    {"a.cpp": 'const char* p = R"({)";\nchar c = \'{\'; // {\n' + function_of(70) + function_of(70)},
    {"a.cpp": "\n" * 600},
    {"host/a/a.cpp": "\n" * 300},
    {f"host/a/{n}.{suffix}": "" for n in range(15) for suffix in ("h", "cpp")},
    {f"host/a/{n}.h": "\n" * 200 for n in range(13)},
]
BAD = [
    ({"a.cpp": function_of(81)}, "a function of 81 lines"),
    ({"a.cpp": "namespace n {\nclass A {\n" + function_of(90, "void F() const") + "};\n}\n"},
     "a function of 90 lines"),
    ({"a.cpp": function_of(85, "A::A() : m_nA{1}, m_nB(2)")}, "a function of 85 lines"),
    ({"a.cpp": function_of(85, "TEST_F(A, B)")}, "a function of 85 lines"),
    ({"a.cpp": function_of(85, "int F(struct stat* p)")}, "a function of 85 lines"),
    ({"a.cpp": "\n" * 601}, "601 lines, 600 at most"),
    ({"a.h": "\n" * 201}, "201 lines, 200 at most"),
    ({"host/a/a.cpp": "\n" * 301}, "301 lines, 300 at most in a room"),
    ({f"host/a/{n}.h": "" for n in range(16)}, "host/a: 16 units, 15 at most"),
    ({f"host/a/{n}.h": "\n" * 187 for n in range(14)}, "host/a: 2618 lines, 2600 at most"),
]

if __name__ == "__main__":
    layout.run(__doc__, check, GOOD, BAD)
