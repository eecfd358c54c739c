// Lines in which repeats are printed once with their number. A line is held for a moment; the equal
// ones that come meanwhile, also between others, are only counted.
//
// Threads: one. Errors: none but std::bad_alloc.
#ifndef HOST_MODULE_REPEATFILTER_H
#define HOST_MODULE_REPEATFILTER_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

class RepeatFilter {
public:
    using Clock = std::chrono::steady_clock;

    static constexpr std::chrono::milliseconds HOLD{250};  // from the first of the lines held
    static constexpr size_t MOST_LINES = 16;               // different ones; then all are printed

    void Add(const std::string& strLine, Clock::time_point now);

    // When Take will have something; nothing while no line is held.
    std::optional<Clock::time_point> Due() const;

    // The lines that are due, in the order of their first coming: "text" or "(300 times) text".
    std::vector<std::string> Take(Clock::time_point now);
    std::vector<std::string> TakeAll();

private:
    struct Held {
        std::string strLine;
        uint64_t nTimes;
    };

    std::vector<Held> m_held;
    std::vector<std::string> m_ready;
    Clock::time_point m_first;
};

#endif
