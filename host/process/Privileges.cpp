#include "host/process/Privileges.h"

#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdint>

namespace privileges {

namespace {

// Names that older headers lack.
constexpr int CAPABILITY_PERFMON = 38;
constexpr int CAPABILITY_BPF = 39;

constexpr uint64_t Bit(int nCapability) {
    return uint64_t{1} << nCapability;
}

constexpr uint64_t WATCHING =
    Bit(CAP_DAC_READ_SEARCH) | Bit(CAP_SYS_PTRACE) | Bit(CAP_SYS_ADMIN) | Bit(CAPABILITY_BPF);
// SYS_RESOURCE: kernels before 5.11 charge eBPF maps to a limit that has to be raised.
constexpr uint64_t STARTING = WATCHING | Bit(CAPABILITY_PERFMON) | Bit(CAP_NET_ADMIN) |
                              Bit(CAP_SYS_NICE) | Bit(CAP_SYS_RESOURCE);

// Of the calling thread: what is there and in nKeep stays permitted and in effect.
void Keep(uint64_t nKeep) {
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3] = {};
    if (syscall(SYS_capget, &header, data) != 0) {
        return;
    }
    for (int i = 0; i < _LINUX_CAPABILITY_U32S_3; ++i) {
        data[i].permitted &= static_cast<uint32_t>(nKeep >> (32 * i));
        data[i].effective = data[i].permitted;
        data[i].inheritable = 0;
    }
    (void)prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_CLEAR_ALL, 0, 0, 0);
    (void)syscall(SYS_capset, &header, data);
}

}  // namespace

void Confine() {
    (void)prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    const rlimit noCore = {0, 0};
    (void)setrlimit(RLIMIT_CORE, &noCore);
    (void)prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);
    // As long as they may be taken away: the one that allows it is not kept.
    for (int nCapability = 0; nCapability < 64; ++nCapability) {
        if ((STARTING & Bit(nCapability)) == 0 && prctl(PR_CAPBSET_READ, nCapability) == 1) {
            (void)prctl(PR_CAPBSET_DROP, nCapability, 0, 0, 0);
        }
    }
    Keep(STARTING);
}

void KeepForWatching() {
    Keep(WATCHING);
}

void DropAll() {
    Keep(0);
}

}  // namespace privileges
