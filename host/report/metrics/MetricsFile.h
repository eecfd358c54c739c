// A file that is written anew every few seconds, whole: into a file in the same directory, which is
// then renamed. Its readers are other users as a rule, so its mode is 0644.
//
// Threads: Begin, End and the destructor on one thread; a thread of its own writes, so that a slow
//   disk holds up nobody but End.
// Errors: a file that cannot be written is reported once, and again when writing had worked in
// between.
#ifndef HOST_REPORT_METRICS_METRICSFILE_H
#define HOST_REPORT_METRICS_METRICSFILE_H

#include <chrono>
#include <functional>
#include <string>
#include <thread>

#include "host/base/MonotonicCondition.h"
#include "host/base/Mutex.h"

class MetricsFile {
public:
    using MakeText = std::function<std::string()>;
    using OnError = std::function<void(const std::string& strError)>;

    MetricsFile(std::string strFile, std::chrono::milliseconds interval, MakeText fnText,
                OnError fnOnError);
    ~MetricsFile() { End(); }

    MetricsFile(const MetricsFile&) = delete;
    MetricsFile& operator=(const MetricsFile&) = delete;

    void Begin();  // the first file is written at once
    void End();    // writes it a last time

    // strText as the whole of strFile; the error that kept it from being written, or 0.
    static int Write(const std::string& strFile, const std::string& strText);

private:
    void Run();
    void WriteNow();

    const std::string m_strFile;
    const std::chrono::milliseconds m_interval;
    const MakeText m_fnText;
    const OnError m_fnOnError;
    bool m_bReported = false;  // [the writing thread]
    Mutex m_mutex;
    MonotonicCondition m_changed;
    bool m_bEnd TEV_GUARDED_BY(m_mutex) = false;
    std::thread m_thread;
};

#endif
