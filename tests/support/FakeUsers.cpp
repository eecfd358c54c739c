#include "tests/support/FakeUsers.h"

#include <pwd.h>

#include <cerrno>
#include <new>
#include <utility>

namespace {
std::vector<FakeUser> g_users;
size_t g_nNext = 0;
int g_nSetCalls = 0;
int g_nGetCalls = 0;
int g_nEndCalls = 0;
int g_nEntriesLeft = -1;  // until a failure; negative for none
int g_nFailure = 0;       // errno of the failure; 0 for an exception
passwd g_entry = {};
}  // namespace

// These stand before the C library's, for this program and every library it loads.
extern "C" __attribute__((visibility("default"))) void setpwent() {
    ++g_nSetCalls;
    g_nNext = 0;
}

extern "C" __attribute__((visibility("default"))) void endpwent() {
    ++g_nEndCalls;
}

extern "C" __attribute__((visibility("default"))) passwd* getpwent() {
    ++g_nGetCalls;
    if (g_nEntriesLeft == 0) {
        g_nEntriesLeft = -1;
        if (g_nFailure != 0) {
            errno = g_nFailure;
            return nullptr;
        }
        throw std::bad_alloc();  // stands for a caller's that fails right after
    }
    g_nEntriesLeft -= g_nEntriesLeft > 0 ? 1 : 0;
    if (g_nNext >= g_users.size()) {
        return nullptr;
    }
    FakeUser& user = g_users[g_nNext++];
    static char shell[] = "/bin/sh";
    g_entry = {};
    g_entry.pw_name = user.bNullName ? nullptr : user.strName.data();
    g_entry.pw_dir = user.bNullHome ? nullptr : user.strHome.data();
    g_entry.pw_shell = shell;
    g_entry.pw_uid = 1000;
    g_entry.pw_gid = 1000;
    return &g_entry;
}

FakeUsers::FakeUsers(std::vector<FakeUser> users) {
    g_users = std::move(users);
    g_nNext = 0;
    g_nSetCalls = g_nGetCalls = g_nEndCalls = 0;
}

FakeUsers::~FakeUsers() {
    g_users.clear();
    g_nEntriesLeft = -1;
}

void FakeUsers::FailOnceAfter(int nEntries, int nErrno) {
    g_nEntriesLeft = nEntries;
    g_nFailure = nErrno;
}

int FakeUsers::SetCalls() {
    return g_nSetCalls;
}
int FakeUsers::GetCalls() {
    return g_nGetCalls;
}
int FakeUsers::EndCalls() {
    return g_nEndCalls;
}
