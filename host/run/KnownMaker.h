// Whether the module skips a pipe without a log record: its maker has a good verdict in the
// module's cache.
//
// Threads: any. Errors: none but std::bad_alloc; a cache that cannot be read knows nobody.
// Ownership: the service must outlive the answer.
#ifndef HOST_RUN_KNOWNMAKER_H
#define HOST_RUN_KNOWNMAKER_H

#include <functional>
#include <string>

#include "host/account/EventLedger.h"
#include "host/verdict/VerdictService.h"

// The key of a program, "" when it cannot be read.
using KeyReader = std::function<std::string(const std::string& strProgram)>;

// strCacheFile: the module's cache database. fnKeyOf: reads the program, unless a test brings its
// own; what it said of one is kept for some seconds.
EventLedger::KnownMaker MakeKnownMaker(const VerdictService& service,
                                       const std::string& strCacheFile, KeyReader fnKeyOf = {});

#endif
