// Why the module would make no query of an event: the state of its file explains it.
//
// Threads: any; files are examined. Errors: none but std::bad_alloc.
#ifndef HOST_ACCOUNT_EVENTEXCUSE_H
#define HOST_ACCOUNT_EVENTEXCUSE_H

#include <functional>
#include <string>
#include <utility>

#include "host/module/ExpectedQueries.h"

enum Excuse { EXCUSE_NONE, EXCUSE_VANISHED, EXCUSE_KNOWN_MAKER };

class EventExcuse {
public:
    // Whether the module skips a pipe of this program without a log record. Called without any
    // lock.
    using KnownMaker = std::function<bool(const std::string& strProgram)>;

    explicit EventExcuse(KnownMaker fnKnownMaker) : m_fnKnownMaker(std::move(fnKnownMaker)) {}

    Excuse Of(const ExpectedQuery& expected) const;

private:
    const KnownMaker m_fnKnownMaker;
};

#endif
