// The modules made for tests (tests/support/fakemodule), which stand in the folder fakemodules
// beside the test programs.
#ifndef TESTS_SUPPORT_FAKEMODULES_H
#define TESTS_SUPPORT_FAKEMODULES_H

#include <sys/types.h>
#include <unistd.h>

#include <climits>
#include <string>

// The folder of the running program, with a slash at its end.
inline std::string ProgramFolder() {
    char szPath[PATH_MAX] = "";
    const ssize_t nLength = readlink("/proc/self/exe", szPath, sizeof(szPath));
    const std::string strSelf(szPath, nLength > 0 ? static_cast<size_t>(nLength) : 0);
    return strSelf.substr(0, strSelf.rfind('/') + 1);
}

// The file of the module of that kind.
inline std::string FakeModule(const std::string& strKind) {
    return ProgramFolder() + "fakemodules/libfakemodule_" + strKind + ".so";
}

#endif
