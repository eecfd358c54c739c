#!/usr/bin/env python3
"""The host's locks are of the kind that the clang preset checks, and each says what it guards."""

import re

import layout

# The standard library's and the system's own: no compiler knows what they guard.
BARE = re.compile(r"\bstd::(?:\w+_)?mutex\b|"
                  r"\bstd::(?:lock_guard|unique_lock|scoped_lock|shared_lock|condition_variable\w*)\b|"
                  r"\bpthread_(?:mutex|rwlock|spinlock|cond)_t\b")
LOCK = re.compile(r"\bC?Mutex (\w+);")
WORDS = re.compile(r"guards what follows|\bguarded by \w+|\[with \w+ held\]")

# file -> why it holds a bare one
WRAPPERS = {
    "host/base/Mutex.h": "makes an annotated lock of it",
    "host/base/MonotonicCondition.h": "a condition variable that waits under an annotated lock",
}


def check(root, _arguments):
    complaints = []
    for path in layout.files(root, layout.CPP, "host"):
        text = layout.read(root, path)
        code = layout.code_only(text)
        for number, (line, bare) in enumerate(zip(text.splitlines(), code.splitlines()), 1):
            if path not in WRAPPERS and BARE.search(bare):
                complaints.append(f"{path}:{number}: {BARE.search(bare)[0]} is not checked, take "
                                  "Mutex, MutexLock or MonotonicCondition of host/base")
            if WORDS.search(line):
                complaints.append(f"{path}:{number}: '{WORDS.search(line)[0]}' is for the compiler: "
                                  "TEV_GUARDED_BY, TEV_REQUIRES")
        for lock in LOCK.findall(code):
            if f"TEV_GUARDED_BY({lock})" not in code:
                complaints.append(f"{path}: nothing is TEV_GUARDED_BY({lock})")
    return complaints


def member(lock, guarded, path="host/base/A.h"):
    return {path: f"class A {{\n    mutable {lock} m_mutex;\n    int m_nA{guarded} = 0;\n}};\n"}


GUARDED = " TEV_GUARDED_BY(m_mutex)"
GOOD = [
    member("Mutex", GUARDED),
    member("CMutex", GUARDED),
    member("Mutex", GUARDED, "host/kernel/launch/A.cpp"),
    {"host/base/A.h": "// not a std::mutex\nvoid Wait(Mutex& mutex) TEV_REQUIRES(mutex);\n"},
    {"host/base/Mutex.h": "std::mutex m_mutex;\n",
     "host/base/MonotonicCondition.h": "pthread_cond_t m_condition;\n"},
    {"framework/base/A.cpp": "std::mutex g_mutex;\n"},
]
BAD = [
    (member("std::mutex", GUARDED), "A.h:2: std::mutex is not checked"),
    (member("std::recursive_mutex", GUARDED), "std::recursive_mutex is not checked"),
    (member("pthread_mutex_t", GUARDED), "pthread_mutex_t is not checked"),
    (member("std::mutex", "", "host/kernel/launch/A.cpp"), "launch/A.cpp:2: std::mutex"),
    (member("Mutex", ""), "nothing is TEV_GUARDED_BY(m_mutex)"),
    (member("CMutex", " TEV_GUARDED_BY(m_other)"), "nothing is TEV_GUARDED_BY(m_mutex)"),
    ({"host/run/A.cpp": "const std::lock_guard<std::mutex> lock(m_mutex);\n"}, "std::lock_guard"),
    ({"host/run/A.h": "    std::condition_variable m_changed;\n"}, "std::condition_variable is"),
    ({"host/run/A.h": "    std::condition_variable_any m_changed;\n"}, "variable_any is not"),
    ({"host/run/A.h": "    int m_nA;  // guards what follows\n"}, "'guards what follows' is for"),
    ({"host/run/A.cpp": "// [with m_mutex held] Ends it.\n"}, "'[with m_mutex held]' is for"),
]

if __name__ == "__main__":
    layout.run(__doc__, check, GOOD, BAD)
