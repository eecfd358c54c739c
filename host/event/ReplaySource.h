// Replays a recording: one whole message a line.
//
// Threads, Errors: as IEventSource.
#ifndef HOST_EVENT_REPLAYSOURCE_H
#define HOST_EVENT_REPLAYSOURCE_H

#include <atomic>
#include <string>
#include <string_view>

#include "host/base/LineReader.h"
#include "host/base/WakeFd.h"
#include "host/event/IEventSource.h"

class ReplaySource : public IEventSource {
public:
    // A longer line is not held in memory; it counts as unusable.
    static constexpr size_t LONGEST_LINE = 16 * 1024 * 1024;

    // strFile, or "-" for standard input.
    ReplaySource(std::string strFile, SourceRemark fnRemark);

    ReplaySource(const ReplaySource&) = delete;
    ReplaySource& operator=(const ReplaySource&) = delete;

    bool Start(std::string& strError) override;
    SourceResult Next(EventBatch& batch, std::chrono::milliseconds wait) override;
    void Stop() override;
    SourceCounters Counters() const override { return m_counters; }
    std::string Name() const override;

private:
    SourceResult Fill(std::chrono::steady_clock::time_point due);
    bool MakeBatch(LineReader::Result eLine, std::string_view strLine, EventBatch& batch);

    const std::string m_strFile;
    const SourceRemark m_fnRemark;
    LineReader m_lines{LONGEST_LINE};
    WakeFd m_wake;  // Stop wakes Next
    std::atomic<bool> m_bStopped{false};
    uint64_t m_nLine = 0;
    SourceCounters m_counters;
};

#endif
