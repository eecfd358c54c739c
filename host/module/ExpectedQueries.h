// Which queries the events of one message give the module reason for, made or skipped.
//
// A launch gives reason for one. A file operation for one in an autostart location, one more for a
// new named pipe and one more for a new unit in a unit directory; most for none at all.
//
// Threads: any; no state but the file system's: whether a created file is a pipe is looked up.
// Errors: none but std::bad_alloc; a text that is no message has no events.
#ifndef HOST_MODULE_EXPECTEDQUERIES_H
#define HOST_MODULE_EXPECTEDQUERIES_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/program/FileVersion.h"

enum ExpectedKind {
    EXPECTED_NONE,
    EXPECTED_LAUNCH,  // about a program that was started
    EXPECTED_FILE,    // about a change in an autostart location
    EXPECTED_PIPE,    // about a named pipe
    EXPECTED_UNIT,    // about a new service or desktop entry
};

struct ExpectedQuery {
    ExpectedKind eKind = EXPECTED_NONE;
    std::string strFile;       // the program of a launch, else the file that was changed
    std::string strProgram;    // the acting program; "" for a launch
    std::string strOperation;  // of EXPECTED_FILE: "create", "write", "rename" or "remove"
    size_t nElement = 0;       // of the message
    // Of a launch: which version of the file was started, as the message names it.
    std::optional<FileVersion> version = {};
};

struct MessageQueries {
    uint64_t nEvents = 0;   // elements of the message
    uint64_t nIgnored = 0;  // of these: no query is due
    std::vector<ExpectedQuery> expected;
};

namespace expected_queries {

// What the module queries about strBody, a message whose analysis begins now. nCopy: which of the
// copies that the module queued, from 0; a message may name both analysers.
MessageQueries Of(const std::string& strBody, uint64_t nCopy = 0);

// Whether a change of strPath is one in an autostart location; by its spelling alone.
bool IsAutostart(const std::string& strPath);

// Whether a new file at strPath is a unit that starts by itself.
bool IsUnit(const std::string& strPath);

// "FileCreate" and so on of a query: the kind of expected query, and its operation where it has
// one.
ExpectedKind KindOfEvent(const std::string& strEvent, std::string& strOperation);
// The same, for people and the other way round; a launch is "launch".
std::string EventOf(ExpectedKind eKind, const std::string& strOperation);

}  // namespace expected_queries

#endif
