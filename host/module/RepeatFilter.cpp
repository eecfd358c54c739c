#include "host/module/RepeatFilter.h"

#include <algorithm>
#include <utility>

void RepeatFilter::Add(const std::string& strLine, Clock::time_point now) {
    const auto found = std::find_if(m_held.begin(), m_held.end(), [&strLine](const Held& held) {
        return held.strLine == strLine;
    });
    if (found != m_held.end()) {
        ++found->nTimes;
        return;
    }
    if (m_held.size() >= MOST_LINES) {
        m_ready = TakeAll();
    }
    if (m_held.empty()) {
        m_first = now;
    }
    m_held.push_back({strLine, 1});
}

std::optional<RepeatFilter::Clock::time_point> RepeatFilter::Due() const {
    if (!m_ready.empty()) {
        return m_first;  // at once: it has passed
    }
    return m_held.empty() ? std::nullopt : std::optional<Clock::time_point>(m_first + HOLD);
}

std::vector<std::string> RepeatFilter::Take(Clock::time_point now) {
    if (!m_held.empty() && now >= m_first + HOLD) {
        return TakeAll();
    }
    return std::exchange(m_ready, {});
}

std::vector<std::string> RepeatFilter::TakeAll() {
    std::vector<std::string> lines = std::exchange(m_ready, {});
    for (Held& held : m_held) {
        lines.push_back(held.nTimes == 1
                            ? std::move(held.strLine)
                            : "(" + std::to_string(held.nTimes) + " times) " + held.strLine);
    }
    m_held.clear();
    return lines;
}
