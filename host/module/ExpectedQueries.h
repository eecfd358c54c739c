// What the module will ask, or say that it need not ask, about the events of one message.
//
// A launch is one question. A file operation is one question in an autostart place, one more for a
// new named pipe and one more for a new unit of an autostart place; most are none at all.
//
// Threads: any; no state but the file system's: whether a created file is a pipe is looked up.
// Errors: none but std::bad_alloc; a text that is no message has no events.
#ifndef HOST_MODULE_EXPECTEDQUERIES_H
#define HOST_MODULE_EXPECTEDQUERIES_H

#include <cstdint>
#include <string>
#include <vector>

enum QuestionKind {
    QUESTION_NONE,
    QUESTION_LAUNCH,  // about a program that was started
    QUESTION_FILE,    // about a change in an autostart place
    QUESTION_PIPE,    // about a named pipe
    QUESTION_UNIT,    // about a new service or desktop entry
};

struct ModuleQuestion {
    QuestionKind eKind = QUESTION_NONE;
    std::string strFile;       // the program of a launch, else the file that was changed
    std::string strProgram;    // the acting program; "" for a launch
    std::string strOperation;  // of QUESTION_FILE: "create", "write", "rename" or "remove"
};

struct MessageQuestions {
    uint64_t nEvents = 0;      // elements of the message
    uint64_t nNoInterest = 0;  // of these: nothing will be asked
    std::vector<ModuleQuestion> questions;
};

namespace expected_queries {

// What the module asks about strBody, a message that it begins to look at now.
MessageQuestions Of(const std::string& strBody);

// Whether a change of strPath is one in an autostart place; by its spelling alone.
bool IsAutostart(const std::string& strPath);

// Whether a new file at strPath is a unit that starts by itself.
bool IsUnit(const std::string& strPath);

// "FileCreate" and so on of a query: the kind of question, and its operation where it has one.
QuestionKind KindOfEvent(const std::string& strEvent, std::string& strOperation);
// The same, for people and the other way round; a launch is "launch".
std::string EventOf(QuestionKind eKind, const std::string& strOperation);

}  // namespace expected_queries

#endif
