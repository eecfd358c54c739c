#include "host/account/ModuleOutcome.h"

ModuleOutcome OutcomeOf(const CloudQuery& query) {
    ModuleOutcome outcome;
    outcome.eKind = expected_queries::KindOfEvent(query.strEvent, outcome.strOperation);
    outcome.strName = query.strPath;
    outcome.bNamesProgram = outcome.eKind == EXPECTED_PIPE || outcome.eKind == EXPECTED_UNIT;
    return outcome;
}

ModuleOutcome OutcomeOf(const ModuleRecord& note) {
    ModuleOutcome outcome;
    outcome.eEnd = note.eNote == NOTE_CACHED       ? OUTCOME_CACHED
                   : note.eNote == NOTE_UNREADABLE ? OUTCOME_UNREADABLE
                                                   : OUTCOME_STAT_FAILED;
    outcome.eKind = note.eExpected;
    outcome.strName = note.strText;
    outcome.strOperation = note.strOperation;
    outcome.bNamesProgram = note.bNamesProgram;
    return outcome;
}
