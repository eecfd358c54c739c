#!/usr/bin/env python3
"""Files and functions stay within their sizes: a file one reads at a sitting, a function one sees."""

import re

import layout

SOURCE_LINES, SOURCE_WARNING = 600, 400
HEADER_LINES = 200
FUNCTION_LINES = 80

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


def check(root, arguments):
    complaints = []
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
]

if __name__ == "__main__":
    layout.run(__doc__, check, GOOD, BAD)
