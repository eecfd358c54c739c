// One thing that watch reports, and the line that it makes.
//
// Threads: any; no state. Errors: none but std::bad_alloc.
#ifndef HOST_REPORT_TEXT_VERDICTROW_H
#define HOST_REPORT_TEXT_VERDICTROW_H

#include <cstdint>
#include <map>
#include <string>

#include "host/base/Console.h"
#include "host/verdict/IVerdictSource.h"

// Foreign texts stand in it as they are; who shows them makes them safe.
struct VerdictRow {
    std::string strTime;     // "09:30:00"
    std::string strVerdict;  // "packaged", "lost"; "" for a text of the host or the module
    int nLevel = 0;          // of the verdict, 0 when it is none
    std::string strWhat;     // "launch", "FileCreate" and so on
    std::string strSubject;  // the program started, the file changed, or the text
    std::string strBy;       // the program that did it; "" when nobody knows
    std::string strWhy;      // package and list, or what it means
    std::string strOwner;    // the package, the entry of a list, or the list
    bool bCached = false;    // the module skipped it, the verdict is known
    uint64_t nTimes = 1;     // so often in a row
};

namespace verdict_row {

// A foreign name in a line of columns. Two blanks end a column, so it does not have them: it could
// go on with columns of its own.
std::string Name(const std::string& strName);

// A row for a verdict, at this moment.
VerdictRow Judged(const std::string& strWhat, const std::string& strSubject,
                  const std::string& strBy, const Verdict& verdict, bool bCached);

// A row for what has no verdict (lost, dropped, unresolved), at this moment.
VerdictRow Unjudged(const std::string& strVerdict, const std::string& strWhat,
                    const std::string& strSubject, const std::string& strWhy);

std::string Text(const Console& output, const VerdictRow& row);

// Green, yellow and red for a good, a doubtful and a bad level.
Console::Colour LevelColour(int nLevel);

// How many there are of each level, as a JSON object.
std::string LevelsJson(const std::map<int, uint64_t>& byLevel);

}  // namespace verdict_row

#endif
