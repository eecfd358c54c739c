#include "tests/support/kernel/FakeKernel.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <linux/capability.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/fanotify.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstring>

namespace {

std::atomic<FakeKernel*> g_pFake{nullptr};

constexpr const char* MOUNTS = "/proc/self/mountinfo";

template <class Function>
Function* Real(const char* pszName) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, pszName));
}

int Failed(int nError) {
    errno = nError;
    return -1;
}

}  // namespace

FakeKernel::FakeKernel() {
    g_pFake = this;
}

FakeKernel::~FakeKernel() {
    g_pFake = nullptr;
    for (const auto& [nFd, source] : m_sources) {
        (void)close(nFd);
    }
}

void FakeKernel::Tell(const std::map<size_t, std::vector<Told>>& bySocket,
                      const std::vector<Told>& events) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (const auto& [nSocket, told] : bySocket) {
        auto& staged = m_stagedMessages[nSocket];
        staged.insert(staged.end(), told.begin(), told.end());
    }
    m_stagedEvents.insert(m_stagedEvents.end(), events.begin(), events.end());
}

void FakeKernel::ChangeMounts() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_bMountsChanged = true;
}

std::vector<std::string> FakeKernel::Requests() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_requests;
}

std::vector<unsigned> FakeKernel::GroupFlags() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_groupFlags;
}

std::vector<unsigned> FakeKernel::FileFlags() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_fileFlags;
}

std::vector<FakeKernel::Mark> FakeKernel::Marks() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_marks;
}

size_t FakeKernel::OpenFds() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_sources.size();
}

struct FakeKernel::Calls {
    static int Add(FakeKernel& kernel, bool bSocket) {
        const int nFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
        Source& source = kernel.m_sources[nFd];
        source.bSocket = bSocket;
        source.nOrder = bSocket ? kernel.m_nSockets++ : 0;
        return nFd;
    }

    static int Group(FakeKernel& kernel, unsigned nFlags, unsigned nFileFlags) {
        const std::lock_guard<std::mutex> lock(kernel.m_mutex);
        const size_t nOrder = kernel.m_groupFlags.size();
        kernel.m_groupFlags.push_back(nFlags);
        kernel.m_fileFlags.push_back(nFileFlags);
        const int nError = nOrder < kernel.groupErrors.size() ? kernel.groupErrors[nOrder] : 0;
        return nError != 0 ? Failed(nError) : Add(kernel, false);
    }

    static int SetMark(FakeKernel& kernel, unsigned nFlags, uint64_t nMask, const char* pszPath) {
        const std::lock_guard<std::mutex> lock(kernel.m_mutex);
        kernel.m_marks.push_back({nFlags, nMask, pszPath});
        const auto found = kernel.markErrors.find(pszPath);
        int nError = found == kernel.markErrors.end() ? 0 : found->second;
        if ((nFlags & FAN_MARK_FILESYSTEM) != 0 && kernel.nWholeError != 0) {
            nError = kernel.nWholeError;
        }
        if ((nFlags & FAN_MARK_IGNORE) != 0 && kernel.nIgnoreError != 0) {
            nError = kernel.nIgnoreError;
        }
        return nError != 0 ? Failed(nError) : 0;
    }

    static int Socket(FakeKernel& kernel) {
        const std::lock_guard<std::mutex> lock(kernel.m_mutex);
        return kernel.nSocketError != 0 ? Failed(kernel.nSocketError) : Add(kernel, true);
    }

    static bool IsOne(FakeKernel& kernel, int nFd) {
        const std::lock_guard<std::mutex> lock(kernel.m_mutex);
        return kernel.m_sources.count(nFd) != 0;
    }

    static int DropsOf(FakeKernel& kernel, int nFd, uint32_t& nDrops) {
        const std::lock_guard<std::mutex> lock(kernel.m_mutex);
        const size_t nOrder = kernel.m_sources[nFd].nOrder;
        if (nOrder >= kernel.drops.size()) {
            return Failed(ENOPROTOOPT);
        }
        nDrops = kernel.drops[nOrder];
        return 0;
    }

    static ssize_t Subscribe(FakeKernel& kernel, const void* pBytes, size_t nSize) {
        const std::lock_guard<std::mutex> lock(kernel.m_mutex);
        kernel.m_requests.emplace_back(static_cast<const char*>(pBytes), nSize);
        return kernel.nSubscribeError != 0 ? Failed(kernel.nSubscribeError)
                                           : static_cast<ssize_t>(nSize);
    }

    // What was added becomes readable.
    static void Publish(FakeKernel& kernel) {
        for (auto& [nFd, source] : kernel.m_sources) {
            auto& staged =
                source.bSocket ? kernel.m_stagedMessages[source.nOrder] : kernel.m_stagedEvents;
            source.told.insert(source.told.end(), staged.begin(), staged.end());
            staged.clear();
        }
    }

    static int Receive(FakeKernel& kernel, int nFd, mmsghdr* pMessages, unsigned nMost) {
        const std::lock_guard<std::mutex> lock(kernel.m_mutex);
        Source& source = kernel.m_sources[nFd];
        if (source.nOrder == 0) {
            Publish(kernel);
        }
        unsigned nCount = 0;
        for (; nCount < nMost && !source.told.empty(); ++nCount) {
            const Told told = source.told.front();
            if (told.nError != 0 && nCount > 0) {
                break;
            }
            source.told.pop_front();
            if (told.nError != 0) {
                return Failed(told.nError);
            }
            const iovec& vector = *pMessages[nCount].msg_hdr.msg_iov;
            const size_t nSize = std::min(told.strBytes.size(), vector.iov_len);
            std::memcpy(vector.iov_base, told.strBytes.data(), nSize);
            pMessages[nCount].msg_len = static_cast<unsigned>(nSize);
        }
        return nCount > 0 ? static_cast<int>(nCount) : Failed(EAGAIN);
    }

    static ssize_t Read(FakeKernel& kernel, int nFd, void* pBuffer, size_t nSize) {
        const std::lock_guard<std::mutex> lock(kernel.m_mutex);
        if (kernel.m_nSockets == 0) {
            Publish(kernel);
        }
        Source& source = kernel.m_sources[nFd];
        if (source.told.empty()) {
            return Failed(EAGAIN);
        }
        const Told told = source.told.front();
        source.told.pop_front();
        if (told.nError != 0) {
            return Failed(told.nError);
        }
        const size_t nTaken = std::min(told.strBytes.size(), nSize);
        std::memcpy(pBuffer, told.strBytes.data(), nTaken);
        return static_cast<ssize_t>(nTaken);
    }

    static bool IsReadable(FakeKernel& kernel, int nFd) {
        const std::lock_guard<std::mutex> lock(kernel.m_mutex);
        const auto found = kernel.m_sources.find(nFd);
        return kernel.bPolled && found != kernel.m_sources.end() && !found->second.told.empty();
    }

    static void Close(FakeKernel& kernel, int nFd) {
        const std::lock_guard<std::mutex> lock(kernel.m_mutex);
        kernel.m_sources.erase(nFd);
    }

    static std::string PathOf(FakeKernel* pKernel, const char* pszPath) {
        if (pKernel == nullptr) {
            return pszPath;
        }
        const auto found = pKernel->paths.find(pszPath);
        return found == pKernel->paths.end() ? pszPath : found->second;
    }

    static int Opened(FakeKernel* pKernel, const char* pszPath, int nFd) {
        if (pKernel != nullptr && std::strcmp(pszPath, MOUNTS) == 0) {
            const std::lock_guard<std::mutex> lock(pKernel->m_mutex);
            pKernel->m_nMounts = pKernel->m_nMounts < 0 ? nFd : pKernel->m_nMounts;
        }
        return nFd;
    }

    static bool TakeMountsChanged(FakeKernel& kernel, int nFd) {
        const std::lock_guard<std::mutex> lock(kernel.m_mutex);
        const bool bChanged = nFd == kernel.m_nMounts && kernel.m_bMountsChanged;
        kernel.m_bMountsChanged = kernel.m_bMountsChanged && !bChanged;
        return bChanged;
    }
};

using Calls = FakeKernel::Calls;

// These stand before the C library's own, for this program.
#define REAL(name) Real<decltype(name)>(#name)

extern "C" {

int socket(int nDomain, int nType, int nProtocol) noexcept {
    FakeKernel* const pFake = g_pFake;
    return pFake != nullptr && nDomain == AF_NETLINK && nProtocol == NETLINK_CONNECTOR
               ? Calls::Socket(*pFake)
               : REAL(socket)(nDomain, nType, nProtocol);
}

int bind(int nFd, const sockaddr* pAddress, socklen_t nLength) noexcept {
    FakeKernel* const pFake = g_pFake;
    if (pFake == nullptr || !Calls::IsOne(*pFake, nFd)) {
        return REAL(bind)(nFd, pAddress, nLength);
    }
    return pFake->nBindError != 0 ? Failed(pFake->nBindError) : 0;
}

int getsockopt(int nFd, int nLevel, int nOption, void* pValue, socklen_t* pLength) noexcept {
    FakeKernel* const pFake = g_pFake;
    if (pFake == nullptr || nOption != SO_MEMINFO || !Calls::IsOne(*pFake, nFd)) {
        return REAL(getsockopt)(nFd, nLevel, nOption, pValue, pLength);
    }
    return Calls::DropsOf(*pFake, nFd, static_cast<uint32_t*>(pValue)[SK_MEMINFO_DROPS]);
}

ssize_t send(int nFd, const void* pBytes, size_t nSize, int nFlags) {
    FakeKernel* const pFake = g_pFake;
    return pFake != nullptr && Calls::IsOne(*pFake, nFd) ? Calls::Subscribe(*pFake, pBytes, nSize)
                                                         : REAL(send)(nFd, pBytes, nSize, nFlags);
}

int recvmmsg(int nFd, mmsghdr* pMessages, unsigned nMost, int nFlags, timespec* pTimeout) {
    FakeKernel* const pFake = g_pFake;
    return pFake != nullptr && Calls::IsOne(*pFake, nFd)
               ? Calls::Receive(*pFake, nFd, pMessages, nMost)
               : REAL(recvmmsg)(nFd, pMessages, nMost, nFlags, pTimeout);
}

ssize_t read(int nFd, void* pBuffer, size_t nSize) {
    FakeKernel* const pFake = g_pFake;
    return pFake != nullptr && Calls::IsOne(*pFake, nFd) ? Calls::Read(*pFake, nFd, pBuffer, nSize)
                                                         : syscall(SYS_read, nFd, pBuffer, nSize);
}

int close(int nFd) {
    FakeKernel* const pFake = g_pFake;
    if (pFake != nullptr) {
        Calls::Close(*pFake, nFd);
    }
    return static_cast<int>(syscall(SYS_close, nFd));
}

int poll(pollfd* pFds, nfds_t nFds, int nMs) {
    FakeKernel* const pFake = g_pFake;
    if (pFake != nullptr && nFds == 1 && Calls::TakeMountsChanged(*pFake, pFds->fd)) {
        pFds->revents = POLLPRI;
        return 1;
    }
    if (pFake != nullptr && nFds == 1 && Calls::IsReadable(*pFake, pFds->fd)) {
        pFds->revents = POLLIN;
        return 1;
    }
    return REAL(poll)(pFds, nFds, nMs);
}

int uname(utsname* pName) noexcept {
    FakeKernel* const pFake = g_pFake;
    const int nResult = REAL(uname)(pName);
    if (pFake != nullptr) {
        (void)pFake->strRelease.copy(pName->release, sizeof(pName->release) - 1);
        pName->release[pFake->strRelease.size()] = '\0';
    }
    return nResult;
}

int pthread_setschedparam(pthread_t thread, int nPolicy, const sched_param* pParam) noexcept {
    FakeKernel* const pFake = g_pFake;
    if (pFake == nullptr) {
        return REAL(pthread_setschedparam)(thread, nPolicy, pParam);
    }
    return pFake->bRealTime ? 0 : EPERM;
}

int open(const char* pszPath, int nFlags, ...) {
    va_list args;
    va_start(args, nFlags);
    const mode_t nMode = va_arg(args, mode_t);
    va_end(args);
    FakeKernel* const pFake = g_pFake;
    const std::string strPath = Calls::PathOf(pFake, pszPath);
    const long nFd = syscall(SYS_openat, AT_FDCWD, strPath.c_str(), nFlags, nMode);
    return Calls::Opened(pFake, pszPath, static_cast<int>(nFd));
}

int openat(int nDir, const char* pszPath, int nFlags, ...) {
    va_list args;
    va_start(args, nFlags);
    const mode_t nMode = va_arg(args, mode_t);
    va_end(args);
    const std::string strPath = Calls::PathOf(g_pFake, pszPath);
    return static_cast<int>(syscall(SYS_openat, nDir, strPath.c_str(), nFlags, nMode));
}

int fanotify_init(unsigned nFlags, unsigned nFileFlags) noexcept {
    FakeKernel* const pFake = g_pFake;
    return pFake != nullptr ? Calls::Group(*pFake, nFlags, nFileFlags)
                            : REAL(fanotify_init)(nFlags, nFileFlags);
}

int fanotify_mark(int nGroup, unsigned nFlags, uint64_t nMask, int nDir,
                  const char* pszPath) noexcept {
    FakeKernel* const pFake = g_pFake;
    return pFake != nullptr ? Calls::SetMark(*pFake, nFlags, nMask, pszPath)
                            : REAL(fanotify_mark)(nGroup, nFlags, nMask, nDir, pszPath);
}

int open_by_handle_at(int nMount, file_handle* pHandle, int nFlags) {
    FakeKernel* const pFake = g_pFake;
    if (pFake == nullptr) {
        return REAL(open_by_handle_at)(nMount, pHandle, nFlags);
    }
    if (pHandle->handle_bytes > MAX_HANDLE_SZ) {
        return Failed(EINVAL);
    }
    const auto found = pFake->handles.find(std::string(
        reinterpret_cast<const char*>(pHandle), sizeof(file_handle) + pHandle->handle_bytes));
    return nMount < 0 || found == pFake->handles.end() ? Failed(ESTALE)
                                                       : open(found->second.c_str(), nFlags);
}

// For a library to find it.
__attribute__((visibility("default"))) int capget(__user_cap_header_struct* pHeader,
                                                  __user_cap_data_struct* pData) noexcept {
    const int nResult = REAL(capget)(pHeader, pData);
    FakeKernel* const pFake = g_pFake;
    if (pFake != nullptr && nResult == 0 && pData != nullptr) {
        constexpr uint32_t TRACE = 1U << CAP_SYS_PTRACE;
        pData[0].effective = (pData[0].effective & ~TRACE) | (pFake->bMayTrace ? TRACE : 0);
    }
    return nResult;
}

}  // extern "C"
