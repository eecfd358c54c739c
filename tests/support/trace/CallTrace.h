// Writes down, while it lives, what the module calls in libraries below it, in order:
//   "stat <path>"  "localtime_r <seconds>"  "hash <path>"  "sql <statement>"  "encode <text>"
// The program that links this folder answers these calls itself and hands them on. A test may note
// calls of its own doubles among them.
#ifndef TESTS_SUPPORT_TRACE_CALLTRACE_H
#define TESTS_SUPPORT_TRACE_CALLTRACE_H

#include <mutex>
#include <string>
#include <string_view>
#include <vector>

class CallTrace {
public:
    CallTrace();
    ~CallTrace();

    CallTrace(const CallTrace&) = delete;
    CallTrace& operator=(const CallTrace&) = delete;

    std::vector<std::string> Calls() const;
    // The calls that begin with strPrefix.
    std::vector<std::string> Calls(const std::string& strPrefix) const;
    void Clear();

    // Appends to the trace that lives; without one it does nothing and takes no memory.
    static void Note(const char* pszCall, std::string_view argument = {});

private:
    mutable std::mutex m_mutex;
    std::vector<std::string> m_calls;
};

#endif
