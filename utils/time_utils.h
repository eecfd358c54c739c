// Time texts.
//
// Threads: any; re-entrant, no state.
#ifndef UTILS_TIME_UTILS_H
#define UTILS_TIME_UTILS_H

#include <cstdint>
#include <string>

namespace time_utils {

// Time zone selector of FormatTimeStr; every value but ZONE_LOCAL means UTC.
constexpr int ZONE_LOCAL = 0;
constexpr int ZONE_UTC = 1;

// tmSeconds (since the epoch) through strftime with strFormat, of any length. "" when the time has
// no date in that zone or memory ran out. An empty strFormat is a programming error: the text of
// the assertion goes to standard error and the process is aborted, in every kind of build.
std::string FormatTimeStr(int64_t tmSeconds, const std::string& strFormat, int nZone);

}  // namespace time_utils

#endif
