#include "framework/sqlite/ConnectionFence.h"

#include <sqlite3.h>
#include <time.h>

#include <cstdint>
#include <cstring>

namespace {

// The index that carries a UNIQUE or PRIMARY KEY of a new table. Nobody else can make one of such
// a name: SQLite keeps the prefix for itself.
bool IsAutomaticIndex(const char* pszName) {
    constexpr char PREFIX[] = "sqlite_autoindex_";
    return pszName != nullptr && strncmp(pszName, PREFIX, sizeof(PREFIX) - 1) == 0;
}

// What one call of them may cost is out of proportion to the text that it stands in, so that no
// count of steps bounds it.
constexpr const char* UNBOUNDED_FUNCTIONS[] = {
    "format", "glob",       "hex",     "instr", "like", "ltrim",    "printf",
    "quote",  "randomblob", "replace", "rtrim", "trim", "zeroblob",
};

bool IsUnbounded(const char* pszFunction) {
    for (const char* pszUnbounded : UNBOUNDED_FUNCTIONS) {
        if (sqlite3_stricmp(pszFunction, pszUnbounded) == 0) {
            return true;
        }
    }
    return false;
}

constexpr int64_t STEP_LIMIT_NS = 1000000000;
constexpr int INSTRUCTIONS_BETWEEN_LOOKS = 100;  // a change of one row has fewer and is never ended

int64_t Now(clockid_t eClock) {
    timespec now = {};
    (void)clock_gettime(eClock, &now);
    return now.tv_sec * 1000000000 + now.tv_nsec;
}

// Of the step in hand on this thread.
struct StepTime {
    bool bLimited = true;
    bool bLookedAt = false;   // most steps end before their first look
    int64_t nUsedBefore = 0;  // processor time at the first look
    int64_t nNextLook = 0;    // on the wall clock, when the processor time is asked for again
};
thread_local StepTime t_step;

// Processor time counts: a process that was stopped, suspended or starved has used none. Asking for
// it is a system call, so the wall clock is asked first, coarsely: nobody uses more than passes.
int IsStepTooLong(void*) {
    StepTime& step = t_step;
    if (!step.bLimited) {
        return 0;
    }
    const int64_t nWall = Now(CLOCK_MONOTONIC_COARSE);
    if (!step.bLookedAt) {
        step.bLookedAt = true;
        step.nUsedBefore = Now(CLOCK_THREAD_CPUTIME_ID);
        step.nNextLook = nWall + STEP_LIMIT_NS;
        return 0;
    }
    if (nWall < step.nNextLook) {
        return 0;
    }
    const int64_t nUsed = Now(CLOCK_THREAD_CPUTIME_ID) - step.nUsedBefore;
    step.nNextLook = nWall + STEP_LIMIT_NS - nUsed;
    return nUsed >= STEP_LIMIT_NS ? 1 : 0;
}

int Authorize(void*, int nAction, const char* pszFirst, const char* pszSecond, const char*,
              const char*) {
    switch (nAction) {
        case SQLITE_SELECT:
        case SQLITE_READ:
        case SQLITE_INSERT:
        case SQLITE_UPDATE:
        case SQLITE_DELETE:
        case SQLITE_TRANSACTION:
        case SQLITE_CREATE_TABLE:
            return SQLITE_OK;
        case SQLITE_FUNCTION:
            return IsUnbounded(pszSecond) ? SQLITE_DENY : SQLITE_OK;
        case SQLITE_CREATE_INDEX:
            return IsAutomaticIndex(pszFirst) ? SQLITE_OK : SQLITE_DENY;
        case SQLITE_PRAGMA:
            return sqlite3_stricmp(pszFirst, "synchronous") == 0 ? SQLITE_OK : SQLITE_DENY;
        default:
            return SQLITE_DENY;
    }
}

struct Setting {
    int nOption;
    int nValue;
};

constexpr Setting SETTINGS[] = {
    {SQLITE_DBCONFIG_DEFENSIVE, 1},
    {SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0},
    {SQLITE_DBCONFIG_ENABLE_LOAD_EXTENSION, 0},
    // Debian's SQLite switches this function on; it takes a code address from the statement.
    {SQLITE_DBCONFIG_ENABLE_FTS3_TOKENIZER, 0},
};

}  // namespace

int FenceConnection(sqlite3* pDB) {
    for (const Setting& setting : SETTINGS) {
        const int nResult = sqlite3_db_config(pDB, setting.nOption, setting.nValue, nullptr);
        if (nResult != SQLITE_OK) {
            return nResult;
        }
    }
    sqlite3_limit(pDB, SQLITE_LIMIT_ATTACHED, 0);
    sqlite3_extended_result_codes(pDB, 0);
    sqlite3_busy_timeout(pDB, 0);
    sqlite3_progress_handler(pDB, INSTRUCTIONS_BETWEEN_LOOKS, IsStepTooLong, nullptr);
    return sqlite3_set_authorizer(pDB, Authorize, nullptr);
}

void BeginFencedStep(bool bLimited) {
    t_step.bLimited = bLimited;
    t_step.bLookedAt = false;
}
