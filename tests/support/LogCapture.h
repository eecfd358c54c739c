// Catches every log record of the process while it lives, all levels.
#ifndef TESTS_SUPPORT_LOGCAPTURE_H
#define TESTS_SUPPORT_LOGCAPTURE_H

#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "framework/log/CLogDebug.h"

struct CapturedLog {
    int nLevel;
    int nLogType;
    std::string strSource;
    std::string strFunction;
    int nLine;
    std::string strFormat;
    std::string strText;  // formatted, as it came, line feed included
};

class LogCapture : public ILogSink {
public:
    LogCapture();            // lowers the level to 0 and takes the sink
    ~LogCapture() override;  // gives both back

    int OnLog(const LogRecord& record, va_list args) override;  // returns 1

    std::vector<CapturedLog> All() const;
    // Records whose text is exactly strText.
    std::vector<CapturedLog> Find(const std::string& strText) const;
    size_t Count(const std::string& strText) const { return Find(strText).size(); }
    // The texts in order, one per record, of level nLevel only unless it is 0.
    std::vector<std::string> Texts(int nLevel = 0) const;
    // Waits until a record with exactly strText stands there; false when it hangs.
    bool WaitFor(const std::string& strText, size_t nTimes = 1);
    void Clear();

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<CapturedLog> m_records;
};

#endif
