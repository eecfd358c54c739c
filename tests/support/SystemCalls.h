// Counts the system calls of one operation, exactly: a child process runs it under this one's eyes.
//
// Calls of the allocator, of locks and of the sanitizers (memory, futexes, scheduling) are left
// out, and so are the two that SQLite makes for root alone.
#ifndef TESTS_SUPPORT_SYSTEMCALLS_H
#define TESTS_SUPPORT_SYSTEMCALLS_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

// The numbers of the system calls that operation makes on its thread, in their order, the second
// time it runs: the first may open files and fill caches. Nothing where a process may not trace its
// own child.
std::optional<std::vector<long>> SystemCallsOf(const std::function<void()>& operation);

// As "close 1, openat 2", names in alphabetical order; a number stands for a rarer call.
std::string Summary(const std::vector<long>& calls);

#endif
