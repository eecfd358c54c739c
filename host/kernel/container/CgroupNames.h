// The control group that a process is in, by the number that the kernel reports, and the container
// whose name it has.
//
// Threads: one object, one thread. Errors: none but std::bad_alloc; what is not known is "".
#ifndef HOST_KERNEL_CONTAINER_CGROUPNAMES_H
#define HOST_KERNEL_CONTAINER_CGROUPNAMES_H

#include <cstdint>
#include <string>
#include <unordered_map>

#include "host/base/UniqueFd.h"

class CgroupNames {
public:
    static constexpr size_t MOST_NAMES = 4096;

    // strRoot: where the unified hierarchy (cgroup2) is mounted; "" where it is mounted nowhere.
    explicit CgroupNames(std::string strRoot = Root());

    // "/system.slice/ssh.service" below that root. Kept by number: the kernel gives a number away
    // once. "" for a group that is gone, and without the hierarchy.
    std::string PathOf(uint64_t nId);

    // From the mount table; "" without one.
    static std::string Root();

private:
    std::string Read(uint64_t nId) const;

    const std::string m_strRoot;
    const UniqueFd m_root;
    std::unordered_map<uint64_t, std::string> m_names;
};

// The container's id, as its runtime names it: the last name on the way that is one
// ("docker-ID.scope", "libpod-ID.scope", "cri-containerd-ID.scope", "crio-ID.scope", or the bare
// id), 64 hexadecimal digits; "" for none. A user who may make groups may name one so: the path
// shows below whom it lies.
std::string ContainerOf(const std::string& strCgroup);

#endif
