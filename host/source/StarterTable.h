// Which program each process runs, as the sensor tells it, so that a launch can name the program
// that started it. For people: nothing depends on it.
//
// Threads: one. Errors: none but std::bad_alloc.
#ifndef HOST_SOURCE_STARTERTABLE_H
#define HOST_SOURCE_STARTERTABLE_H

#include <cstdint>
#include <string>
#include <unordered_map>

#include "host/source/LaunchEvent.h"

class StarterTable {
public:
    static constexpr size_t MOST_PROCESSES = 32768;

    // Before the launch itself is noted: its parent's program. A process that was there before
    // the sensor is looked up in /proc. "" when nobody knows.
    std::string StarterOf(const LaunchEvent& event) const;

    // strProgram is the path of an exec; nothing reads it for the other kinds.
    void Note(const LaunchEvent& event, const std::string& strProgram);

    size_t Size() const { return m_programs.size(); }

private:
    void Put(uint32_t nPid, const std::string& strProgram);

    std::unordered_map<uint32_t, std::string> m_programs;
};

#endif
