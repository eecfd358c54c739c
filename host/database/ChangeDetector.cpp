#include "host/database/ChangeDetector.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr size_t WRITE_VERSION = 18;  // 1 rollback journal, 2 write-ahead log

}  // namespace

void ChangeDetector::Open(const std::string& strFile) {
    m_fd.Reset();
    m_fd.Reset(open(strFile.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    m_strJournal = strFile + "-journal";
}

ChangeDetector::State ChangeDetector::Begin() {
    // The stamp first: a change that ends between the two is seen by IsUnchanged.
    if (!Read(m_before)) {
        return STATE_WRITTEN;
    }
    if (m_before.header[WRITE_VERSION] == 2) {
        return STATE_WRITE_AHEAD;
    }
    return IsJournalInUse() ? STATE_WRITTEN : STATE_QUIET;
}

bool ChangeDetector::IsUnchanged() const {
    // The journal first: once it is gone, the counter of its change is in the file.
    Stamp after;
    return !IsJournalInUse() && Read(after) && after.header == m_before.header &&
           after.nSize == m_before.nSize && after.tmModified.tv_sec == m_before.tmModified.tv_sec &&
           after.tmModified.tv_nsec == m_before.tmModified.tv_nsec;
}

bool ChangeDetector::Read(Stamp& stamp) const {
    struct stat status = {};
    stamp.header.fill(0);  // an empty file has no header yet
    if (fstat(m_fd.Get(), &status) != 0 ||
        pread(m_fd.Get(), stamp.header.data(), stamp.header.size(), 0) < 0) {
        return false;
    }
    stamp.nSize = status.st_size;
    stamp.tmModified = status.st_mtim;
    return true;
}

// A journal that is kept between changes begins with a zero while it is not in use.
bool ChangeDetector::IsJournalInUse() const {
    const UniqueFd journal(
        open(m_strJournal.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!journal) {
        return access(m_strJournal.c_str(), F_OK) == 0;
    }
    unsigned char cFirst = 0;
    const ssize_t nRead = read(journal.Get(), &cFirst, 1);
    return nRead < 0 || cFirst != 0;
}
