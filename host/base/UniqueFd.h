// A file descriptor with an owner, who closes it.
//
// Threads: as an int. Errors: none; what close reports is of use after writing only, see Close.
#ifndef HOST_BASE_UNIQUEFD_H
#define HOST_BASE_UNIQUEFD_H

#include <unistd.h>

#include <cerrno>
#include <utility>

class UniqueFd {
public:
    UniqueFd() = default;
    // Owns nFd from now on; below 0 it is what a call returned that opened nothing.
    explicit UniqueFd(int nFd) : m_nFd(nFd) {}
    ~UniqueFd() { Reset(); }

    UniqueFd(UniqueFd&& other) noexcept : m_nFd(other.Release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        Reset(other.Release());
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;

    explicit operator bool() const { return m_nFd >= 0; }
    int Get() const { return m_nFd; }  // below 0 when there is none

    // Closes what it owns and owns nFd instead. errno stays what the opening of nFd left.
    void Reset(int nFd = -1) {
        const int nError = errno;
        (void)Close();
        errno = nError;
        m_nFd = nFd;
    }

    // 0, or the error of close: on some file systems only it reports that something written is
    // lost.
    int Close() { return m_nFd >= 0 && close(std::exchange(m_nFd, -1)) != 0 ? errno : 0; }

    // Hands the descriptor over; whoever takes it closes it.
    [[nodiscard]] int Release() { return std::exchange(m_nFd, -1); }

private:
    int m_nFd = -1;
};

#endif
