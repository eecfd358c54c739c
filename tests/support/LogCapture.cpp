#include "tests/support/LogCapture.h"

#include <algorithm>
#include <chrono>

#include "tests/support/Event.h"

LogCapture::LogCapture() {
    CLogDebug::Instance()->SetLevel(0);
    CLogDebug::Instance()->SetSink(this);
}

LogCapture::~LogCapture() {
    CLogDebug::Instance()->SetSink(nullptr);
    CLogDebug::Instance()->SetLevel(4);
}

int LogCapture::OnLog(const LogRecord& record, va_list args) {
    CapturedLog captured = {record.nLevel,
                            record.nLogType,
                            record.pszSource,
                            record.pszFunction,
                            record.nLine,
                            record.pszFormat,
                            CLogDebug::MessageOf(record, args)};
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_records.push_back(std::move(captured));
    m_changed.notify_all();
    return 1;
}

std::vector<CapturedLog> LogCapture::All() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_records;
}

std::vector<CapturedLog> LogCapture::Find(const std::string& strText) const {
    std::vector<CapturedLog> found;
    for (const CapturedLog& record : All()) {
        if (record.strText == strText) {
            found.push_back(record);
        }
    }
    return found;
}

std::vector<std::string> LogCapture::Texts(int nLevel) const {
    std::vector<std::string> texts;
    for (const CapturedLog& record : All()) {
        if (nLevel == 0 || record.nLevel == nLevel) {
            texts.push_back(record.strText);
        }
    }
    return texts;
}

bool LogCapture::WaitFor(const std::string& strText, size_t nTimes) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, HANGS_AFTER, [&] {
        const auto nFound =
            std::count_if(m_records.begin(), m_records.end(),
                          [&](const CapturedLog& record) { return record.strText == strText; });
        return static_cast<size_t>(nFound) >= nTimes;
    });
}

void LogCapture::Clear() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_records.clear();
}
