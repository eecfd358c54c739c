// Walks over files and reports every program found as if it had just been started: a program is
// a regular file with an execute bit, under each path that leads to it. Links to directories are
// not followed, except those named by the user, and a directory is walked once, so the walk ends.
//
// Threads, Errors: as IEventSource.
#ifndef HOST_EVENT_SCANSOURCE_H
#define HOST_EVENT_SCANSOURCE_H

#include <sys/stat.h>

#include <atomic>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "host/event/IEventSource.h"

class ScanSource : public IEventSource {
public:
    // paths: absolute paths of directories and files. nBatch: programs in one message, at least 1.
    ScanSource(std::vector<std::string> paths, size_t nBatch, SourceRemark fnRemark);

    // False when one of the paths does not exist.
    bool Start(std::string& strError) override;
    SourceResult Next(EventBatch& batch, std::chrono::milliseconds wait) override;
    void Stop() override { m_bStopped = true; }
    SourceCounters Counters() const override { return m_counters; }
    std::string Name() const override;

private:
    void Visit(const std::string& strPath, bool bNamed);
    void OpenDirectory(const std::string& strPath, const struct stat& status);

    const std::vector<std::string> m_paths;
    const size_t m_nBatch;
    const SourceRemark m_fnRemark;
    std::atomic<bool> m_bStopped{false};
    // What is still to be visited, the next one last; true for a path that the user gave.
    std::vector<std::pair<std::string, bool>> m_open;
    std::set<std::pair<dev_t, ino_t>> m_walked;
    std::vector<std::string> m_found;  // programs of the batch that is being filled
    SourceCounters m_counters;
};

#endif
