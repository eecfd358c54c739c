// Numbers and times as people read them.
//
// Threads: any; no state. Errors: none but std::bad_alloc.
#ifndef HOST_BASE_HUMANTEXT_H
#define HOST_BASE_HUMANTEXT_H

#include <cstdint>
#include <string>

namespace text {

// 1536 as "1.5 KiB". bytes below 1024 as "17 B".
std::string Bytes(uint64_t nBytes);

// 1234567 as "1,234,567".
std::string Number(uint64_t nNumber);

// "1 message", "1,234 messages"; strMany is the word of several where an "s" does not make it.
std::string Count(uint64_t nNumber, const std::string& strOne, const std::string& strMany = "");

// Local time as "2024-05-17 09:30:00".
std::string LocalTime(int64_t tmSeconds);

// The time of day now, "09:30:00".
std::string ClockNow();

}  // namespace text

#endif
