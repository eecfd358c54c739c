#include "host/report/metrics/MetricsFile.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <utility>

#include "host/base/UniqueFd.h"
#include "host/base/WriteAll.h"

MetricsFile::MetricsFile(std::string strFile, std::chrono::milliseconds interval, MakeText fnText,
                         OnError fnOnError)
    : m_strFile(std::move(strFile)),
      m_interval(interval),
      m_fnText(std::move(fnText)),
      m_fnOnError(std::move(fnOnError)) {}

void MetricsFile::Begin() {
    if (!m_thread.joinable()) {
        m_thread = std::thread(&MetricsFile::Run, this);
    }
}

void MetricsFile::End() {
    if (!m_thread.joinable()) {
        return;
    }
    {
        const MutexLock lock(m_mutex);
        m_bEnd = true;
        m_changed.NotifyAll();
    }
    m_thread.join();
}

void MetricsFile::Run() {
    pthread_setname_np(pthread_self(), "host_metrics");
    bool bEnd = false;
    while (!bEnd) {
        WriteNow();
        MutexLock lock(m_mutex);
        const auto due = MonotonicCondition::Clock::now() + m_interval;
        while (!m_bEnd && MonotonicCondition::Clock::now() < due) {
            m_changed.WaitUntil(m_mutex, due);
        }
        bEnd = m_bEnd;
    }
    WriteNow();
}

void MetricsFile::WriteNow() {
    try {
        const int nError = Write(m_strFile, m_fnText());
        if (nError != 0 && !m_bReported) {
            m_fnOnError("cannot write " + m_strFile + ": " + std::strerror(nError));
        }
        m_bReported = nError != 0;
    } catch (const std::exception&) {
        // Out of memory: the file stays as it is until the next time.
    }
}

int MetricsFile::Write(const std::string& strFile, const std::string& strText) {
    std::string strBeside = strFile + ".XXXXXX";
    UniqueFd fd(mkostemp(strBeside.data(), O_CLOEXEC));
    if (!fd) {
        return errno;
    }
    int nError = WriteAll(fd.Get(), strText);
    if (nError == 0 && fchmod(fd.Get(), 0644) != 0) {
        nError = errno;
    }
    const int nCloseError = fd.Close();
    nError = nError != 0 ? nError : nCloseError;
    if (nError == 0 && std::rename(strBeside.c_str(), strFile.c_str()) != 0) {
        nError = errno;
    }
    if (nError != 0) {
        (void)unlink(strBeside.c_str());  // nothing more can be done
    }
    return nError;
}
