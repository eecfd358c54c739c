// What only a user without rights sees, for death tests: the user is the process's, so all of it
// happens in the child that the death test makes.
#ifndef TESTS_SUPPORT_NOPRIVILEGE_H
#define TESTS_SUPPORT_NOPRIVILEGE_H

#include <unistd.h>

#include <cstdio>
#include <string>

constexpr int REFUSED_WITHOUT_PRIVILEGE = 42;  // exit codes of OpenWithoutPrivilege
constexpr int OPENED_WITHOUT_PRIVILEGE = 2;

// The process goes on as nobody; one that is nobody special stays who it is.
inline void BecomeAnotherUser() {
    if (geteuid() == 0 && setresuid(65534, 65534, 65534) != 0) {
        _exit(3);
    }
}

// As another user opens what has Open(std::string& strError), prints the error on standard error
// and exits.
template <class Opened>
[[noreturn]] void OpenWithoutPrivilege(Opened& opened) {
    BecomeAnotherUser();
    std::string strError;
    const bool bOpen = opened.Open(strError);
    (void)std::fprintf(stderr, "%s\n", strError.c_str());
    _exit(bOpen ? OPENED_WITHOUT_PRIVILEGE : REFUSED_WITHOUT_PRIVILEGE);
}

#endif
