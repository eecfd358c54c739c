// Finds out whether a database with a rollback journal was written while somebody read it without a
// lock: its writer begins a journal before the first byte it changes, counts up the number at
// byte 24 with every change it completes, and takes the journal away last.
//
// Threads: one object, one thread. Errors: a file that cannot be read looks like one that is
//   being written; nothing throws but std::bad_alloc.
#ifndef HOST_DATABASE_CHANGEDETECTOR_H
#define HOST_DATABASE_CHANGEDETECTOR_H

#include <sys/types.h>

#include <array>
#include <ctime>
#include <string>

#include "host/base/UniqueFd.h"

class ChangeDetector {
public:
    enum State {
        STATE_QUIET,        // nobody is writing
        STATE_WRITTEN,      // somebody is writing, or ended in the middle of it
        STATE_WRITE_AHEAD,  // the file has a write-ahead log: readers never hinder its writer
    };

    ChangeDetector() = default;
    ChangeDetector(const ChangeDetector&) = delete;
    ChangeDetector& operator=(const ChangeDetector&) = delete;

    // Watches strFile from now on, and what was watched before no longer. Closing a file ends the
    // locks that the process holds on it by other descriptors, so there must be none.
    void Open(const std::string& strFile);

    // Called before reading.
    State Begin();

    // Called after reading what followed a Begin that answered STATE_QUIET: true when nothing
    // changed meanwhile, so that all that was read belongs together.
    bool IsUnchanged() const;

private:
    struct Stamp {
        std::array<unsigned char, 28> header = {};  // up to the end of the change counter
        off_t nSize = 0;
        timespec tmModified = {};
    };

    bool Read(Stamp& stamp) const;
    bool IsJournalInUse() const;

    std::string m_strJournal;
    UniqueFd m_fd;
    Stamp m_before;
};

#endif
