// Puts the user database that setpwent() and getpwent() walk under the test's control. While no
// FakeUsers lives the database is empty, so that no test depends on the machine's accounts.
#ifndef TESTS_SUPPORT_FAKEUSERS_H
#define TESTS_SUPPORT_FAKEUSERS_H

#include <initializer_list>
#include <string>
#include <vector>

struct FakeUser {
    std::string strName;
    std::string strHome;
    bool bNullName = false;  // the entry's name pointer is null
    bool bNullHome = false;  // likewise its home directory
};

class FakeUsers {
public:
    explicit FakeUsers(std::vector<FakeUser> users);
    // So that a list of one entry means a user and not another FakeUsers.
    FakeUsers(std::initializer_list<FakeUser> users) : FakeUsers(std::vector<FakeUser>(users)) {}
    ~FakeUsers();

    FakeUsers(const FakeUsers&) = delete;
    FakeUsers& operator=(const FakeUsers&) = delete;

    // The next nEntries entries are given, then one call throws std::bad_alloc, or gives none with
    // nErrno as the C library's does.
    static void FailOnceAfter(int nEntries, int nErrno = 0);

    // Calls since construction.
    static int SetCalls();
    static int GetCalls();
    static int EndCalls();  // endpwent
};

#endif
