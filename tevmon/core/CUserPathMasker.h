// Takes local account names out of paths: every path component that is the login name of a local
// user with a home under /home/ becomes "$username".
//
// Threads: [channel] only; the map has no lock and getpwent has process-wide state.
// Errors: std::bad_alloc, with the users as they were; an unreadable user database masks nothing.
//   Where the database ends in an error, a service of users behind it may not have answered: those
//   that were read count, and are read again after a minute until an end is clean.
// Ownership: one object per process, made by Instance().
#ifndef TEVMON_CORE_CUSERPATHMASKER_H
#define TEVMON_CORE_CUSERPATHMASKER_H

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "framework/base/SingletonAbstract.h"

struct LocalUser {
    std::string name;
    uint32_t uid = 0;
    uint32_t gid = 0;
    std::string home;
    std::string shell;
};

class CUserPathMasker : public utils::SingletonAbstract<CUserPathMasker> {
public:
    // Masks strPath in place, wherever in it a name stands. A path without a name stays as it is to
    // the letter; one with a name loses its doubled separators. Always true. Reads the user
    // database at the first path of two or more characters, and again as long as no user qualifies.
    bool MaskUserPath(std::string& strPath);

    // A masked copy of strPath by the process's masker.
    static std::string Masked(std::string strPath);

    // Fills the map afresh from the system's user database, which is rewound and left open. After a
    // failure half-way the map is as it was; where the database ends in another error, who was read
    // is added to it.
    void LoadUsers();

protected:
    friend class utils::SingletonAbstract<CUserPathMasker>;
    CUserPathMasker() = default;
    ~CUserPathMasker() = default;

private:
    bool HoldsUser(std::string_view strPath) const;
    bool IsDue() const;

    std::map<std::string, LocalUser, std::less<>> m_users;  // found by pieces of a path, uncopied
    bool m_bPart = false;                                   // users may be missing
    int64_t m_nRead = 0;  // when the database was read, in seconds of the steady clock
};

#endif
