// Reads a text file line by line in constant memory, whatever the file holds.
//
// Threads: one object, one thread. Errors: returned; nothing throws but std::bad_alloc.
#ifndef HOST_BASE_LINEREADER_H
#define HOST_BASE_LINEREADER_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "host/base/UniqueFd.h"

class LineReader {
public:
    // More than two names of the longest possible path, each byte of them escaped.
    static constexpr size_t MAX_LINE = 64 * 1024;

    enum Result {
        RESULT_LINE,
        RESULT_END,
        RESULT_TOO_LONG,  // the next line has more than MAX_LINE bytes; reading ends here
        RESULT_FAILED,    // Error() says why; reading ends here
    };

    LineReader() = default;
    LineReader(const LineReader&) = delete;
    LineReader& operator=(const LineReader&) = delete;

    // Opens strFile; false with Error() set otherwise. With bRegularOnly everything else than a
    // regular file is refused, without ever waiting for the other end of a pipe.
    bool Open(const std::string& strFile, bool bRegularOnly);

    // The next line without its line feed, valid until the next call. A last line without line
    // feed counts.
    Result Next(std::string_view& strLine);

    const std::string& Error() const { return m_strError; }

private:
    bool Refill();

    UniqueFd m_fd;
    bool m_bAtEnd = false;
    size_t m_nBegin = 0;  // what is read and not yet given out: m_buffer[m_nBegin, m_nEnd)
    size_t m_nEnd = 0;
    std::vector<char> m_buffer;
    std::string m_strError;
};

#endif
