#include "tests/support/trace/FakeFiles.h"

#include <dlfcn.h>
#include <fcntl.h>

#include <atomic>
#include <cerrno>

#include "framework/digest/FileHash.h"
#include "tests/support/trace/CallTrace.h"

namespace {
std::atomic<FakeFiles*> g_pFiles{nullptr};
}  // namespace

FakeFiles::FakeFiles() {
    g_pFiles = this;
}

FakeFiles::~FakeFiles() {
    g_pFiles = nullptr;
}

void FakeFiles::Redirect(const std::string& strPath, const std::string& strReal) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_fakes[strPath].strReal = strReal;
}

void FakeFiles::SetStatus(const std::string& strPath, const struct stat& status) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_fakes[strPath].bStatus = true;
    m_fakes[strPath].status = status;
}

void FakeFiles::VanishAfter(const std::string& strPath, int nCalls) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_fakes[strPath].nCallsLeft = nCalls;
}

bool FakeFiles::Stat(const std::string& strPath, struct stat& status, int& nResult) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_fakes.find(strPath);
    if (found == m_fakes.end()) {
        return false;
    }
    Fake& fake = found->second;
    if (fake.nCallsLeft == 0) {
        errno = ENOENT;
        nResult = -1;
        return true;
    }
    if (fake.nCallsLeft > 0) {
        --fake.nCallsLeft;
    }
    if (fake.bStatus) {
        status = fake.status;
        nResult = 0;
    } else {
        const std::string& strSeen = fake.strReal.empty() ? strPath : fake.strReal;
        nResult = fstatat(AT_FDCWD, strSeen.c_str(), &status, 0);
    }
    return true;
}

std::string FakeFiles::RealPath(const std::string& strPath) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_fakes.find(strPath);
    return found == m_fakes.end() || found->second.strReal.empty() ? strPath
                                                                   : found->second.strReal;
}

// These stand before the libraries' own, for this program and every library it loads.
extern "C" __attribute__((visibility("default"))) int stat(const char* pszPath,
                                                           struct stat* pStatus) noexcept {
    CallTrace::Note("stat ", pszPath);
    FakeFiles* pFiles = g_pFiles;
    int nResult = -1;
    return pFiles != nullptr && pFiles->Stat(pszPath, *pStatus, nResult)
               ? nResult
               : fstatat(AT_FDCWD, pszPath, pStatus, 0);
}

bool utils::getMD5AndSHA1(const std::string& strPath, std::string& strMd5, std::string& strSha1) {
    using Function = bool (*)(const std::string&, std::string&, std::string&);
    static const auto pfnNext = reinterpret_cast<Function>(
        dlsym(RTLD_NEXT,
              "_ZN5utils13getMD5AndSHA1ERKNSt7__cxx1112basic_stringIcSt11char_"
              "traitsIcESaIcEEERS5_S8_"));
    CallTrace::Note("hash ", strPath);
    FakeFiles* pFiles = g_pFiles;
    return pFiles != nullptr ? pfnNext(pFiles->RealPath(strPath), strMd5, strSha1)
                             : pfnNext(strPath, strMd5, strSha1);
}
