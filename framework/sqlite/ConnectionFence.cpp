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
constexpr int64_t OWN_STEP_LIMIT_NS = 60 * STEP_LIMIT_NS;  // ten million rows take less
constexpr int INSTRUCTIONS_BETWEEN_LOOKS = 100;  // a change of one row has fewer and is never ended
constexpr int MANY_LOOKS = 1000;

int64_t Now(clockid_t eClock) {
    timespec now = {};
    (void)clock_gettime(eClock, &now);
    return now.tv_sec * 1000000000 + now.tv_nsec;
}

// Of the step in hand on this thread.
struct StepTime {
    bool bLimited = true;
    int nLooks = 0;           // most steps end before their first
    int64_t nUsedBefore = 0;  // processor time at the first look
    int64_t nBegin = 0;       // the wall clock's
};
thread_local StepTime t_step;

// A process that was stopped, suspended or starved has used no processor time, so that counts; but
// many instructions are no statement of the stores' own, and end when a second has passed in which
// they waited for the disk or the processor. The processor time is asked for once the wall clock
// says that it may be used up: that is a system call.
int IsStepTooLong(void*) {
    StepTime& step = t_step;
    const int64_t nLimit = step.bLimited ? STEP_LIMIT_NS : OWN_STEP_LIMIT_NS;
    const int64_t nWall = Now(CLOCK_MONOTONIC_COARSE);
    if (++step.nLooks == 1) {
        step.nBegin = nWall;
        step.nUsedBefore = Now(CLOCK_THREAD_CPUTIME_ID);
        return 0;
    }
    if (nWall - step.nBegin < nLimit) {
        return 0;
    }
    const bool bForeignWork = step.bLimited && step.nLooks > MANY_LOOKS;
    return bForeignWork || Now(CLOCK_THREAD_CPUTIME_ID) - step.nUsedBefore >= nLimit ? 1 : 0;
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
    t_step.nLooks = 0;
}

bool WasLongStep() {
    return t_step.nLooks > MANY_LOOKS;
}
