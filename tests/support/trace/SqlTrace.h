// Sees every statement text that SQLite is asked to prepare while it lives, byte for byte. What
// SQLite asks itself, to read a schema, is left out.
//
// The program that links this folder answers SQLite's prepare call itself and hands it on. One
// SqlTrace at a time. Threads: any.
#ifndef TESTS_SUPPORT_TRACE_SQLTRACE_H
#define TESTS_SUPPORT_TRACE_SQLTRACE_H

#include <functional>
#include <string>
#include <vector>

class SqlTrace {
public:
    using Hook = std::function<void(const std::string& strStatement)>;

    // The hook, if any, runs before each statement is prepared, on the thread that prepares it; it
    // may use connections of its own.
    explicit SqlTrace(Hook hook = nullptr);
    ~SqlTrace();

    SqlTrace(const SqlTrace&) = delete;
    SqlTrace& operator=(const SqlTrace&) = delete;

    std::vector<std::string> Statements() const;
    size_t Count(const std::string& strStatement) const;  // those that are exactly this text

    // What the interposed call saw; without a SqlTrace it does nothing.
    static void Note(const char* pszStatement);

    // While one lives, the statements of its thread are not seen: they are the test's own.
    class Quiet {
    public:
        Quiet();
        ~Quiet();
        Quiet(const Quiet&) = delete;
        Quiet& operator=(const Quiet&) = delete;
    };
};

#endif
