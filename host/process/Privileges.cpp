#include "host/process/Privileges.h"

#include <cap-ng.h>
#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/resource.h>

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
    // Its state is the thread's own, so threads do not meet here.
    if (capng_get_caps_process() != 0) {
        return;
    }
    for (int nCapability = 0; nCapability < 64; ++nCapability) {  // those unknown here too
        const auto nNumber = static_cast<unsigned>(nCapability);
        const bool bKept =
            (nKeep & Bit(nCapability)) != 0 && capng_have_capability(CAPNG_PERMITTED, nNumber) != 0;
        constexpr auto IN_USE = static_cast<capng_type_t>(CAPNG_EFFECTIVE | CAPNG_PERMITTED);
        constexpr auto LEFT_TO_OTHERS =
            static_cast<capng_type_t>(CAPNG_INHERITABLE | CAPNG_AMBIENT);
        (void)capng_update(bKept ? CAPNG_ADD : CAPNG_DROP, IN_USE, nNumber);
        (void)capng_update(CAPNG_DROP, LEFT_TO_OTHERS, nNumber);
    }
    (void)capng_apply(CAPNG_SELECT_CAPS);
    (void)prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_CLEAR_ALL, 0, 0, 0);
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

bool Has(int nCapability) {
    return capng_get_caps_process() == 0 &&
           capng_have_capability(CAPNG_EFFECTIVE, static_cast<unsigned>(nCapability)) != 0;
}

}  // namespace privileges
