#!/usr/bin/env python3
"""Tests look for words with HasSubstr, which prints the text; a position is compared only where it is used later."""

import re

import layout

# A position that is compared where it is found, so that nothing else can use it.
COMPARED = re.compile(r"\b(?:EXPECT|ASSERT)_(?:NE|EQ)\(\s*"
                      r"(?:std::string(?:_view)?::npos\s*,[^;]*?(?:\.|->)find\("
                      r"|[^;,]*?(?:\.|->)find\([^;]*,\s*std::string(?:_view)?::npos\s*\))")


def check(root, _arguments):
    complaints = []
    for path in layout.files(root, layout.CPP, "tests"):
        code = layout.code_only(layout.read(root, path))
        for match in COMPARED.finditer(code):
            number = code.count("\n", 0, match.start()) + 1
            complaints.append(f"{path}:{number}: compares a position; use EXPECT_THAT with HasSubstr")
    return complaints


GOOD = [
    {"tests/a_test.cpp": 'EXPECT_THAT(strText, HasSubstr("a"));\n// EXPECT_NE(std::string::npos, s.find("a"));\n'},
    {"tests/a_test.cpp": 'const size_t nAt = s.find("a");\nASSERT_NE(std::string::npos, nAt);\nUse(nAt);\n'},
    {"tests/a_test.cpp": 'EXPECT_EQ(std::string::npos, s.find_first_not_of("x"));\nEXPECT_EQ(0u, s.find("a"));\n'},
    {"host/a.cpp": 'EXPECT_NE(std::string::npos, s.find("a"));\n'},
]
BAD = [
    ({"tests/a_test.cpp": '\nEXPECT_NE(std::string::npos, s.find("a"));\n'}, "a_test.cpp:2: compares"),
    ({"tests/a_test.cpp": 'EXPECT_EQ(std::string::npos,\n          pText->find("a; b")) << s;\n'}, "compares"),
    ({"tests/a.h": 'ASSERT_NE(s.find("a", 1), std::string::npos);\n'}, "compares"),
]

if __name__ == "__main__":
    layout.run(__doc__, check, GOOD, BAD)
