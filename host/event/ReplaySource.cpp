#include "host/event/ReplaySource.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "host/event/EventMessage.h"

namespace {

constexpr size_t READ_SIZE = 64 * 1024;

}  // namespace

ReplaySource::ReplaySource(std::string strFile, SourceRemark fnRemark)
    : m_strFile(std::move(strFile)), m_fnRemark(std::move(fnRemark)) {}

std::string ReplaySource::Name() const {
    return m_strFile == "-" ? "standard input" : m_strFile;
}

bool ReplaySource::Start(std::string& strError) {
    const bool bWake = m_wake.Open();
    m_file.Reset(m_strFile == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3)
                                  : open(m_strFile.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
    struct stat status = {};
    if (!m_file || !bWake || fstat(m_file.Get(), &status) != 0) {
        strError = "cannot open " + Name() + ": " + std::strerror(errno) +
                   "; name a file of JSON lines, or - for standard input";
        return false;
    }
    if (S_ISDIR(status.st_mode)) {
        strError = Name() + " is a directory; name a file of JSON lines";
        return false;
    }
    return true;
}

void ReplaySource::Stop() {
    m_bStopped = true;
    m_wake.Wake();
}

SourceResult ReplaySource::Next(EventBatch& batch, std::chrono::milliseconds wait) {
    const auto due = std::chrono::steady_clock::now() + wait;
    std::string strLine;
    while (!m_bStopped) {
        const LineResult eLine = TakeLine(strLine);
        if (eLine != LINE_NOT_YET) {
            if (MakeBatch(eLine, strLine, batch)) {
                return SOURCE_BATCH;
            }
            continue;
        }
        if (m_bFileEnded) {
            return SOURCE_END;
        }
        const SourceResult eFilled = Fill(due);
        if (eFilled != SOURCE_BATCH) {
            return eFilled;
        }
    }
    return SOURCE_END;
}

// Takes the next line off the buffer; at the end of the file also one without a line feed.
ReplaySource::LineResult ReplaySource::TakeLine(std::string& strLine) {
    const size_t nEnd = m_strBuffer.find('\n', std::max(m_nTaken, m_nSearched));
    const bool bWhole = nEnd != std::string::npos;
    const size_t nLength = (bWhole ? nEnd : m_strBuffer.size()) - m_nTaken;
    const bool bTooLong = m_bSkipping || nLength > LONGEST_LINE;
    if (!bWhole && !m_bFileEnded) {
        if (bTooLong) {
            m_bSkipping = true;
            m_strBuffer.clear();
            m_nTaken = 0;
        }
        m_nSearched = m_strBuffer.size();
        return LINE_NOT_YET;
    }
    if (!bWhole && nLength == 0 && !m_bSkipping) {
        return LINE_NOT_YET;
    }
    strLine = bTooLong ? std::string() : m_strBuffer.substr(m_nTaken, nLength);
    m_nTaken = bWhole ? nEnd + 1 : m_strBuffer.size();
    m_bSkipping = false;
    return bTooLong ? LINE_TOO_LONG : LINE_WHOLE;
}

// Reads more. SOURCE_BATCH stands for "look again".
SourceResult ReplaySource::Fill(std::chrono::steady_clock::time_point due) {
    using std::chrono::milliseconds;
    const auto left =
        std::chrono::duration_cast<milliseconds>(due - std::chrono::steady_clock::now());
    pollfd fds[] = {{m_file.Get(), POLLIN, 0}, {m_wake.Fd(), POLLIN, 0}};
    const int nReady = poll(fds, 2, static_cast<int>(std::max<int64_t>(0, left.count())));
    if (nReady == 0 || (nReady < 0 && errno == EINTR)) {
        return SOURCE_NOTHING_YET;
    }
    if (m_bStopped || nReady < 0) {
        return SOURCE_END;
    }
    m_strBuffer.erase(0, m_nTaken);
    m_nSearched -= std::min(m_nSearched, m_nTaken);
    m_nTaken = 0;
    const size_t nOld = m_strBuffer.size();
    m_strBuffer.resize(nOld + READ_SIZE);
    const ssize_t nRead = read(m_file.Get(), &m_strBuffer[nOld], READ_SIZE);
    m_strBuffer.resize(nOld + (nRead > 0 ? static_cast<size_t>(nRead) : 0));
    if (nRead < 0 && (errno == EINTR || errno == EAGAIN)) {
        return SOURCE_BATCH;
    }
    if (nRead < 0) {
        m_fnRemark(m_nLine + 1, std::string("cannot be read: ") + std::strerror(errno));
        ++m_counters.nUnusable;
    }
    m_bFileEnded = nRead <= 0;
    return SOURCE_BATCH;
}

bool ReplaySource::MakeBatch(LineResult eLine, std::string& strLine, EventBatch& batch) {
    ++m_nLine;
    std::string strReason = eLine == LINE_TOO_LONG
                                ? "longer than " + std::to_string(LONGEST_LINE) + " bytes"
                                : "an empty line";
    if (eLine == LINE_TOO_LONG || strLine.empty() ||
        !event_message::IsUsable(strLine, batch.nCopies, batch.nEvents, strReason)) {
        ++m_counters.nUnusable;
        m_fnRemark(m_nLine, strReason);
        return false;
    }
    batch.strBody = std::move(strLine);
    batch.nNumber = m_nLine;
    ++m_counters.nBatches;
    m_counters.nEvents += batch.nEvents;
    return true;
}
