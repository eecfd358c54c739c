// The screen of a watch, line by line: a title, numbers, and the last of what was judged.
//
// Threads: any; no state. Errors: none but std::bad_alloc.
#ifndef HOST_REPORT_SCREEN_SCREENLAYOUT_H
#define HOST_REPORT_SCREEN_SCREENLAYOUT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "host/report/text/VerdictRow.h"

struct ScreenNumbers {
    std::string strState;  // what the host is doing
    std::string strClock;
    uint64_t nUpSeconds = 0;
    uint64_t nLaunches = 0;  // captured
    uint64_t nFiles = 0;     // likewise
    double dLaunchRate = 0;  // a second
    double dFileRate = 0;
    uint64_t nWaitingEvents = 0;
    uint64_t nWaitingMessages = 0;
    uint64_t nQueries = 0;
    uint64_t nQueried = 0;   // expected queries that were made
    uint64_t nCached = 0;    // expected queries that the cache answered
    uint64_t nPackaged = 0;  // answers of each kind
    uint64_t nGoodAnswers = 0;
    uint64_t nUnknown = 0;
    uint64_t nBadAnswers = 0;
    uint64_t nBadRuns = 0;    // times that a bad program ran or touched a watched file
    uint64_t nDropped = 0;    // events refused or not stored
    uint64_t nLost = 0;       // launches
    uint64_t nOverflows = 0;  // times that unknown many file operations were lost
    uint64_t nUnexplained = 0;
};

struct ScreenFormat {
    size_t nColumns = 80;
    size_t nRows = 24;
    bool bColour = true;
    bool bUnicode = true;
};

namespace screen_layout {

// Exactly nRows lines of at most nColumns cells. rows: the newest last; those that find no room
// are left out. Their foreign texts are made safe here.
std::vector<std::string> Lines(const ScreenNumbers& numbers, const std::vector<VerdictRow>& rows,
                               const ScreenFormat& screen);

}  // namespace screen_layout

#endif
