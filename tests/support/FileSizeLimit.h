// While one lives, no file of the process grows past nBytes: the write that would fails, without a
// signal. What stands in for a disk that is full.
#ifndef TESTS_SUPPORT_FILESIZELIMIT_H
#define TESTS_SUPPORT_FILESIZELIMIT_H

#include <signal.h>
#include <sys/resource.h>

class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t nBytes) : m_pfnOldHandler(signal(SIGXFSZ, SIG_IGN)) {
        (void)getrlimit(RLIMIT_FSIZE, &m_old);
        rlimit limit = m_old;
        limit.rlim_cur = nBytes;
        (void)setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        (void)setrlimit(RLIMIT_FSIZE, &m_old);
        (void)signal(SIGXFSZ, m_pfnOldHandler);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit m_old = {};
    void (*m_pfnOldHandler)(int);
};

#endif
