#include "tests/support/SystemCalls.h"

#include <signal.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <map>

namespace {

constexpr long MARK = SYS_getpgid;  // nobody else calls it
constexpr long SYSCALL_STOP = SIGTRAP | 0x80;

const std::map<long, const char*> NAMES = {
    {SYS_read, "read"},
    {SYS_write, "write"},
    {SYS_openat, "openat"},
    {SYS_close, "close"},
    {SYS_fstatfs, "fstatfs"},
    {SYS_newfstatat, "newfstatat"},
    {SYS_stat, "stat"},
    {SYS_lstat, "lstat"},
    {SYS_fcntl, "fcntl"},
    {SYS_pread64, "pread64"},
    {SYS_pwrite64, "pwrite64"},
    {SYS_unlink, "unlink"},
    {SYS_access, "access"},
    {SYS_ftruncate, "ftruncate"},
    {SYS_fdatasync, "fdatasync"},
    {SYS_fsync, "fsync"},
    {SYS_lseek, "lseek"},
    {SYS_getcwd, "getcwd"},
    {SYS_readlink, "readlink"},
    {SYS_getpid, "getpid"},
    {SYS_faccessat, "faccessat"},
    {SYS_poll, "poll"},
    {SYS_dup2, "dup2"},
    {SYS_rt_sigprocmask, "rt_sigprocmask"},
    {SYS_rt_sigpending, "rt_sigpending"},
    {SYS_rt_sigtimedwait, "rt_sigtimedwait"},
    {SYS_ioctl, "ioctl"},
};

bool IsLeftOut(long nCall) {
    switch (nCall) {
        case SYS_mmap:
        case SYS_munmap:
        case SYS_mremap:
        case SYS_brk:
        case SYS_madvise:
        case SYS_mprotect:
        case SYS_futex:
        case SYS_sched_yield:
        case SYS_getrandom:
        case SYS_geteuid:
        case SYS_fchown:
            return true;
        default:
            return false;
    }
}

// The C library asks for the status of a descriptor by newfstatat, the thread sanitizer's own fstat
// by the older call.
long Normalised(long nCall) {
    return nCall == SYS_fstat ? SYS_newfstatat : nCall;
}

[[noreturn]] void RunTraced(const std::function<void()>& operation) {
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
        _exit(1);
    }
    (void)raise(SIGSTOP);
    operation();
    (void)syscall(MARK, 0);
    operation();
    (void)syscall(MARK, 0);
    _exit(0);
}

// Goes on to the next entry into a system call or return from one; false at the child's end.
bool Next(pid_t nChild, __ptrace_syscall_info& info) {
    int nStatus = 0;
    int nSignal = 0;
    for (;;) {
        if (ptrace(PTRACE_SYSCALL, nChild, nullptr, nSignal) != 0 ||
            waitpid(nChild, &nStatus, 0) != nChild || !WIFSTOPPED(nStatus)) {
            return false;
        }
        if (WSTOPSIG(nStatus) == SYSCALL_STOP) {
            return ptrace(PTRACE_GET_SYSCALL_INFO, nChild, sizeof(info), &info) > 0;
        }
        nSignal = WSTOPSIG(nStatus);
    }
}

}  // namespace

std::optional<std::vector<long>> SystemCallsOf(const std::function<void()>& operation) {
    const pid_t nChild = fork();
    if (nChild == 0) {
        RunTraced(operation);
    }
    int nStatus = 0;
    if (nChild < 0 || waitpid(nChild, &nStatus, 0) != nChild || !WIFSTOPPED(nStatus)) {
        return std::nullopt;
    }
    (void)ptrace(PTRACE_SETOPTIONS, nChild, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    std::vector<long> calls;
    int nMarks = 0;
    __ptrace_syscall_info info = {};
    while (Next(nChild, info)) {
        if (info.op != PTRACE_SYSCALL_INFO_ENTRY) {
            continue;
        }
        const long nCall = static_cast<long>(info.entry.nr);
        nMarks += nCall == MARK ? 1 : 0;
        if (nMarks == 1 && nCall != MARK && !IsLeftOut(nCall)) {
            calls.push_back(Normalised(nCall));
        }
    }
    if (nMarks != 2) {
        return std::nullopt;
    }
    return calls;
}

std::string Summary(const std::vector<long>& calls) {
    std::map<std::string, int> counts;
    for (const long nCall : calls) {
        const auto found = NAMES.find(nCall);
        ++counts[found != NAMES.end() ? found->second : std::to_string(nCall)];
    }
    std::string strText;
    for (const auto& [strName, nCount] : counts) {
        strText += (strText.empty() ? "" : ", ") + strName + " " + std::to_string(nCount);
    }
    return strText;
}
