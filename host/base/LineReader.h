// Reads a text file line by line in constant memory, whatever the file holds.
//
// Threads: one object, one thread. Errors: returned; nothing throws but std::bad_alloc.
#ifndef HOST_BASE_LINEREADER_H
#define HOST_BASE_LINEREADER_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/base/UniqueFd.h"

class LineReader {
public:
    // More than two names of the longest possible path, each byte of them escaped.
    static constexpr size_t MAX_LINE = 64 * 1024;

    enum Result {
        RESULT_LINE,
        RESULT_END,
        RESULT_TOO_LONG,  // the next line is longer than the longest; it is passed over
        RESULT_FAILED,    // Error() says why; reading ends here
    };

    // nLongest: bytes of the longest line; a line takes no more than twice as much, and one read.
    explicit LineReader(size_t nLongest = MAX_LINE) : m_nLongest(nLongest) {}
    LineReader(const LineReader&) = delete;
    LineReader& operator=(const LineReader&) = delete;

    // Opens strFile; false with Error() set otherwise. With bRegularOnly everything else than a
    // regular file is refused, without ever waiting for the other end of a pipe.
    bool Open(const std::string& strFile, bool bRegularOnly);
    // Reads from that descriptor instead.
    void Use(UniqueFd fd) { m_fd = std::move(fd); }
    int Fd() const { return m_fd.Get(); }

    // The next line without its line feed, valid until the next call. A last line without line
    // feed counts. Waits for what it reads.
    Result Next(std::string_view& strLine);

    // Likewise from what was read so far, for callers that wait themselves, nothing when more must
    // be read first; and reads once more, without effect when nothing waits in a descriptor that
    // does not block.
    std::optional<Result> Take(std::string_view& strLine);
    bool Read();

    const std::string& Error() const { return m_strError; }

private:
    const size_t m_nLongest;
    UniqueFd m_fd;
    bool m_bAtEnd = false;
    bool m_bPassingOver = false;  // inside a line that is too long, after that was returned
    size_t m_nBegin = 0;          // what is read and not yet given out: m_buffer[m_nBegin, m_nEnd)
    size_t m_nEnd = 0;
    size_t m_nSearched = 0;  // bytes of it that hold no line feed
    std::vector<char> m_buffer;
    std::string m_strError;
};

#endif
