#!/usr/bin/env python3
"""A descriptor of the host has an owner that closes it: UniqueFd, and nothing else, calls close."""

import re

import layout

CLOSE = re.compile(r"(?<![\w.>])(?:::)?close\s*\(")
# What hands out a new descriptor, kept in a plain int.
OPENS = (r"open|openat|openat2|open_by_handle_at|creat|mkostemp|mkstemp|dup|socket|accept4?|eventfd|"
         r"timerfd_create|signalfd|memfd_create|epoll_create1|inotify_init1|fanotify_init")
UNOWNED = re.compile(rf"\b(?:int|auto)\s+(\w+)\s*=[^;{{}}]*?"
                     rf"(?:(?<![\w.>])(?:{OPENS})\s*\(|\bF_DUPFD\w*|\bSYS_(?:{OPENS})\b)")

# The owner. Streams, directories, databases and eBPF objects are closed by calls of other names,
# and their descriptors stay theirs.
OWNER = "host/base/UniqueFd.h"


def check(root, _arguments):
    complaints = []
    for path in layout.files(root, layout.CPP, "host"):
        if path == OWNER:
            continue
        code = layout.code_only(layout.read(root, path))
        for match in CLOSE.finditer(code):
            complaints.append(f"{place(path, code, match)}: close is the affair of UniqueFd")
        for match in UNOWNED.finditer(code):
            complaints.append(f"{place(path, code, match)}: {match[1]} is a descriptor without an "
                              "owner, make it a UniqueFd")
    return complaints


def place(path, code, match):
    return f"{path}:{code.count(chr(10), 0, match.start()) + 1}"


GOOD = [
    {OWNER: "~UniqueFd() { close(m_nFd); }\n"},
    {"host/base/A.cpp": "const UniqueFd fd(open(pszName, O_RDONLY));\n"},
    {"host/base/A.cpp": "m_fd.Reset(openat(nDir, pszName, O_RDONLY));\n"},
    {"host/base/A.cpp": "// close(nFd) is not called\nWarn(\"close(nFd)\");\n"},
    {"host/base/A.cpp": "fclose(pFile); closedir(pDir); sqlite3_close(m_pDb); m_terminal.Close();\n"},
    {"host/base/A.cpp": "stream.close(); pStream->close();\nint nFd = fd.Get();\n"},
    {"host/base/A.cpp": "bool bOpen = pSensor->open(nFd);\nint n = reader.open(strFile);\n"},
    {"framework/base/A.cpp": "const int nFd = open(pszName, O_RDONLY);\nclose(nFd);\n"},
]
BAD = [
    ({"host/base/A.cpp": "void F() {\n    close(nFd);\n}\n"}, "A.cpp:2: close is the affair"),
    ({"host/kernel/launch/A.h": "~A() { (void)::close (m_nFd); }\n"}, "A.h:1: close is the affair"),
    ({"host/base/A.cpp": "const int nFd = open(pszName, O_RDONLY);\n"}, "nFd is a descriptor"),
    ({"host/base/A.cpp": "int nFd =\n    bFile ? ::open(pszName, 0)\n : -1;\n"}, "nFd is a descriptor"),
    ({"host/base/A.cpp": "int nFd = fcntl(1, F_DUPFD_CLOEXEC, 3);\n"}, "nFd is a descriptor"),
    ({"host/base/A.cpp": "auto nFd = static_cast<int>(syscall(SYS_openat2, 1));\n"}, "nFd is a desc"),
    ({"host/base/A.cpp": "int m_nWake = eventfd(0, EFD_CLOEXEC);\n"}, "m_nWake is a descriptor"),
]

if __name__ == "__main__":
    layout.run(__doc__, check, GOOD, BAD)
