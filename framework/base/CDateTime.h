// A local date and time of day, and its text.
//
// Threads: any; values. Errors: none.
#ifndef FRAMEWORK_BASE_CDATETIME_H
#define FRAMEWORK_BASE_CDATETIME_H

#include <cstdint>
#include <string>

#include "framework/abi/Export.h"

class HOSTFRAMEWORK_API CDateTime {
public:
    // Seconds since the epoch, read as local time.
    explicit CDateTime(int64_t tmSeconds) : m_tmSeconds(tmSeconds) {}

    static CDateTime currentDateTime();

    // strPattern with "yyyy", "MM", "dd", "hh" (24-hour clock), "mm" and "ss" replaced by the
    // local time's zero-padded numbers; every other character stands as it is. "" when the time
    // has no local date.
    std::string toString(const std::string& strPattern) const;

private:
    int64_t m_tmSeconds;
};

#endif
