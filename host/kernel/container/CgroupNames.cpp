#include "host/kernel/container/CgroupNames.h"

#include <fcntl.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "host/base/MountTable.h"
#include "host/program/FileLook.h"

namespace {

constexpr int KERNFS_HANDLE = 0xfe;  // the kernel's FILEID_KERNFS: a handle is the number
constexpr size_t ID_DIGITS = 64;

bool IsId(const std::string& strText) {
    return strText.size() == ID_DIGITS &&
           strText.find_first_not_of("0123456789abcdef") == std::string::npos;
}

// What a runtime calls the group of a container: PREFIX-ID.scope, ID.scope or ID.
std::string IdIn(std::string strName) {
    static const std::string SCOPE = ".scope";
    if (strName.size() > SCOPE.size() &&
        strName.compare(strName.size() - SCOPE.size(), SCOPE.size(), SCOPE) == 0) {
        strName.resize(strName.size() - SCOPE.size());
    }
    strName.erase(0, strName.rfind('-') + 1);  // nothing without a hyphen
    return IsId(strName) ? strName : "";
}

}  // namespace

CgroupNames::CgroupNames(std::string strRoot)
    : m_strRoot(std::move(strRoot)),
      m_root(m_strRoot.empty() ? -1 : open(m_strRoot.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
}

std::string CgroupNames::Root() {
    for (const MountEntry& mount : mount_table::Parse(mount_table::Text())) {
        if (mount.strType == "cgroup2") {
            return mount.strPoint;
        }
    }
    return "";
}

std::string CgroupNames::PathOf(uint64_t nId) {
    if (nId == 0 || !m_root) {
        return "";
    }
    const auto found = m_names.find(nId);
    if (found != m_names.end()) {
        return found->second;
    }
    std::string strPath = Read(nId);
    if (!strPath.empty()) {
        if (m_names.size() >= MOST_NAMES) {
            m_names.clear();
        }
        m_names.emplace(nId, strPath);
    }
    return strPath;
}

std::string CgroupNames::Read(uint64_t nId) const {
    alignas(file_handle) unsigned char handle[sizeof(file_handle) + sizeof(nId)] = {};
    file_handle head = {};
    head.handle_bytes = sizeof(nId);
    head.handle_type = KERNFS_HANDLE;
    std::memcpy(handle, &head, sizeof(head));
    std::memcpy(handle + sizeof(head), &nId, sizeof(nId));
    const UniqueFd group(open_by_handle_at(m_root.Get(), reinterpret_cast<file_handle*>(handle),
                                           O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!group) {
        return "";
    }
    const std::string strPath = file_look::LinkText("/proc/self/fd/" + std::to_string(group.Get()));
    if (strPath == m_strRoot) {
        return "/";
    }
    const bool bBelow = strPath.compare(0, m_strRoot.size() + 1, m_strRoot + "/") == 0;
    return bBelow ? strPath.substr(m_strRoot.size()) : "";
}

std::string ContainerOf(const std::string& strCgroup) {
    std::string strId;
    for (size_t nBegin = 0; nBegin < strCgroup.size();) {
        const size_t nEnd = std::min(strCgroup.find('/', nBegin), strCgroup.size());
        const std::string strFound = IdIn(strCgroup.substr(nBegin, nEnd - nBegin));
        strId = strFound.empty() ? strId : strFound;
        nBegin = nEnd + 1;
    }
    return strId;
}
