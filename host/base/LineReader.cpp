#include "host/base/LineReader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>

namespace {

constexpr size_t READ_SIZE = 128 * 1024;

std::string ErrnoText() {
    return std::generic_category().message(errno);
}

}  // namespace

bool LineReader::Open(const std::string& strFile, bool bRegularOnly) {
    const int nFlags = O_RDONLY | O_CLOEXEC | O_NOCTTY | (bRegularOnly ? O_NONBLOCK : 0);
    m_fd.Reset(open(strFile.c_str(), nFlags));
    struct stat status = {};
    if (!m_fd || fstat(m_fd.Get(), &status) != 0) {
        m_strError = ErrnoText();
        return false;
    }
    if (S_ISDIR(status.st_mode)) {
        m_strError = "it is a directory";
        return false;
    }
    if (bRegularOnly && !S_ISREG(status.st_mode)) {
        m_strError = "it is not a regular file";
        return false;
    }
    return true;
}

LineReader::Result LineReader::Next(std::string_view& strLine) {
    for (;;) {
        if (const std::optional<Result> result = Take(strLine)) {
            return *result;
        }
        if (!Read()) {
            return RESULT_FAILED;
        }
    }
}

std::optional<LineReader::Result> LineReader::Take(std::string_view& strLine) {
    for (;;) {
        const char* const pBegin = m_buffer.data() + m_nBegin;
        const size_t nHeld = m_nEnd - m_nBegin;
        const void* const pFeed =
            nHeld > m_nSearched ? memchr(pBegin + m_nSearched, '\n', nHeld - m_nSearched) : nullptr;
        if (pFeed == nullptr && !m_bAtEnd) {
            m_nSearched = nHeld;
            if (nHeld <= m_nLongest && !m_bPassingOver) {
                return std::nullopt;
            }
            m_nBegin = m_nEnd;  // of a line that is too long nothing is kept
            m_nSearched = 0;
            if (std::exchange(m_bPassingOver, true)) {
                return std::nullopt;
            }
            return RESULT_TOO_LONG;
        }
        const bool bRest = std::exchange(m_bPassingOver, false);
        if (pFeed == nullptr && nHeld == 0) {
            return RESULT_END;
        }
        const size_t nLine = pFeed == nullptr
                                 ? nHeld
                                 : static_cast<size_t>(static_cast<const char*>(pFeed) - pBegin);
        m_nBegin += nLine + (pFeed == nullptr ? 0 : 1);
        m_nSearched = 0;
        if (!bRest) {
            strLine = std::string_view(pBegin, nLine);
            return nLine > m_nLongest ? RESULT_TOO_LONG : RESULT_LINE;
        }
    }
}

bool LineReader::Read() {
    if (m_nBegin > 0) {
        memmove(m_buffer.data(), m_buffer.data() + m_nBegin, m_nEnd - m_nBegin);
        m_nEnd -= m_nBegin;
        m_nBegin = 0;
    }
    if (m_buffer.size() < m_nEnd + READ_SIZE) {
        m_buffer.resize(m_nEnd + READ_SIZE);
    }
    ssize_t nRead = -1;
    do {
        nRead = read(m_fd.Get(), m_buffer.data() + m_nEnd, READ_SIZE);
    } while (nRead < 0 && errno == EINTR);
    if (nRead < 0 && errno != EAGAIN) {
        m_strError = ErrnoText();
        return false;
    }
    m_nEnd += nRead > 0 ? static_cast<size_t>(nRead) : 0;
    m_bAtEnd = m_bAtEnd || nRead == 0;
    return true;
}
