// How the module ended what it was to query, as its query or a record of its log says.
//
// Threads: any; no state. Errors: none but std::bad_alloc.
#ifndef HOST_ACCOUNT_MODULEOUTCOME_H
#define HOST_ACCOUNT_MODULEOUTCOME_H

#include <string>

#include "host/cloud/CloudQuery.h"
#include "host/module/ExpectedQueries.h"
#include "host/module/ModuleLog.h"

enum OutcomeKind { OUTCOME_QUERIED, OUTCOME_CACHED, OUTCOME_UNREADABLE, OUTCOME_STAT_FAILED };

// How the module ended an expected query, by its query or a record of its log.
struct ModuleOutcome {
    OutcomeKind eEnd = OUTCOME_QUERIED;
    ExpectedKind eKind = EXPECTED_NONE;
    std::string strName;       // the file concerned, or the program
    std::string strOperation;  // of EXPECTED_FILE
    bool bNamesProgram = false;
};

ModuleOutcome OutcomeOf(const CloudQuery& query);
ModuleOutcome OutcomeOf(const ModuleRecord& note);

#endif
