#include "host/base/LineReader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>

namespace {

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
    m_buffer.resize(2 * MAX_LINE);
    return true;
}

LineReader::Result LineReader::Next(std::string_view& strLine) {
    size_t nSearched = 0;
    for (;;) {
        const char* pBegin = m_buffer.data() + m_nBegin;
        const size_t nHeld = m_nEnd - m_nBegin;
        const void* pFeed =
            nHeld > nSearched ? memchr(pBegin + nSearched, '\n', nHeld - nSearched) : nullptr;
        const bool bLast = pFeed == nullptr && m_bAtEnd;
        if (pFeed != nullptr || (bLast && nHeld > 0)) {
            const size_t nLine =
                pFeed == nullptr ? nHeld
                                 : static_cast<size_t>(static_cast<const char*>(pFeed) - pBegin);
            if (nLine > MAX_LINE) {
                return RESULT_TOO_LONG;
            }
            strLine = std::string_view(pBegin, nLine);
            m_nBegin += pFeed == nullptr ? nLine : nLine + 1;
            return RESULT_LINE;
        }
        if (bLast) {
            return RESULT_END;
        }
        if (nHeld > MAX_LINE) {
            return RESULT_TOO_LONG;
        }
        nSearched = nHeld;
        if (!Refill()) {
            return RESULT_FAILED;
        }
    }
}

bool LineReader::Refill() {
    if (m_nBegin > 0) {
        memmove(m_buffer.data(), m_buffer.data() + m_nBegin, m_nEnd - m_nBegin);
        m_nEnd -= m_nBegin;
        m_nBegin = 0;
    }
    for (;;) {
        const ssize_t nRead = read(m_fd.Get(), m_buffer.data() + m_nEnd, m_buffer.size() - m_nEnd);
        if (nRead >= 0) {
            m_nEnd += static_cast<size_t>(nRead);
            m_bAtEnd = nRead == 0;
            return true;
        }
        if (errno != EINTR) {
            m_strError = ErrnoText();
            return false;
        }
    }
}
