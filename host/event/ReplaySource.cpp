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

ReplaySource::ReplaySource(std::string strFile, SourceRemark fnRemark)
    : m_strFile(std::move(strFile)), m_fnRemark(std::move(fnRemark)) {}

std::string ReplaySource::Name() const {
    return m_strFile == "-" ? "standard input" : m_strFile;
}

bool ReplaySource::Start(std::string& strError) {
    const bool bWake = m_wake.Open();
    UniqueFd file(m_strFile == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3)
                                   : open(m_strFile.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
    struct stat status = {};
    if (!file || !bWake || fstat(file.Get(), &status) != 0) {
        strError = "cannot open " + Name() + ": " + std::strerror(errno) +
                   "; name a file of JSON lines, or - for standard input";
        return false;
    }
    if (S_ISDIR(status.st_mode)) {
        strError = Name() + " is a directory; name a file of JSON lines";
        return false;
    }
    m_lines.Use(std::move(file));
    return true;
}

void ReplaySource::Stop() {
    m_bStopped = true;
    m_wake.Wake();
}

SourceResult ReplaySource::Next(EventBatch& batch, std::chrono::milliseconds wait) {
    const auto due = std::chrono::steady_clock::now() + wait;
    std::string_view strLine;
    while (!m_bStopped) {
        const std::optional<LineReader::Result> line = m_lines.Take(strLine);
        if (!line) {
            const SourceResult eFilled = Fill(due);
            if (eFilled != SOURCE_BATCH) {
                return eFilled;
            }
        } else if (*line == LineReader::RESULT_END) {
            return SOURCE_END;
        } else if (MakeBatch(*line, strLine, batch)) {
            return SOURCE_BATCH;
        }
    }
    return SOURCE_END;
}

// Reads more. SOURCE_BATCH stands for "look again".
SourceResult ReplaySource::Fill(std::chrono::steady_clock::time_point due) {
    using std::chrono::milliseconds;
    const auto left =
        std::chrono::duration_cast<milliseconds>(due - std::chrono::steady_clock::now());
    pollfd fds[] = {{m_lines.Fd(), POLLIN, 0}, {m_wake.Fd(), POLLIN, 0}};
    const int nReady = poll(fds, 2, static_cast<int>(std::max<int64_t>(0, left.count())));
    if (nReady == 0 || (nReady < 0 && errno == EINTR)) {
        return SOURCE_NOTHING_YET;
    }
    if (m_bStopped || nReady < 0) {
        return SOURCE_END;
    }
    if (!m_lines.Read()) {
        m_fnRemark(m_nLine + 1, "cannot be read: " + m_lines.Error());
        ++m_counters.nUnusable;
        return SOURCE_END;
    }
    return SOURCE_BATCH;
}

bool ReplaySource::MakeBatch(LineReader::Result eLine, std::string_view strLine,
                             EventBatch& batch) {
    ++m_nLine;
    const bool bTooLong = eLine == LineReader::RESULT_TOO_LONG;
    std::string strBody(bTooLong ? "" : strLine);
    std::string strReason =
        bTooLong ? "longer than " + std::to_string(LONGEST_LINE) + " bytes" : "an empty line";
    if (strBody.empty() ||
        !event_message::IsUsable(strBody, batch.nCopies, batch.nEvents, strReason)) {
        ++m_counters.nUnusable;
        m_fnRemark(m_nLine, strReason);
        return false;
    }
    batch.strBody = std::move(strBody);
    batch.nNumber = m_nLine;
    ++m_counters.nBatches;
    m_counters.nEvents += batch.nEvents;
    return true;
}
