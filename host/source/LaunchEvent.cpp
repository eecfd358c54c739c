#include "host/source/LaunchEvent.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "host/bpf/launch_record.h"

namespace {

// Takes the record's texts one after the other.
class Texts {
public:
    Texts(const char* pText, size_t nSize) : m_pText(pText), m_nLeft(nSize) {}

    bool Take(size_t nLength, std::string& strText) {
        if (nLength > m_nLeft) {
            return false;
        }
        strText.assign(m_pText, nLength);
        m_pText += nLength;
        m_nLeft -= nLength;
        return true;
    }

private:
    const char* m_pText;
    size_t m_nLeft;
};

std::string UntilNul(const std::string& strText) {
    return strText.substr(0, strText.find('\0'));
}

// "c\0b\0a\0" as "/a/b/c".
std::string PathOf(const std::string& strNames) {
    std::string strPath;
    for (size_t nBegin = 0; nBegin < strNames.size();) {
        const size_t nEnd = std::min(strNames.find('\0', nBegin), strNames.size());
        strPath.insert(0, "/" + strNames.substr(nBegin, nEnd - nBegin));
        nBegin = nEnd + 1;
    }
    return strPath;
}

std::string JoinArguments(std::string strArgs) {
    if (!strArgs.empty() && strArgs.back() == '\0') {
        strArgs.pop_back();
    }
    std::replace(strArgs.begin(), strArgs.end(), '\0', ' ');
    return strArgs;
}

bool DecodeExec(const launch_record& head, Texts texts, LaunchEvent& event) {
    std::string strPath, strName, strInterp, strDirectory, strRoot, strArgs;
    if (!texts.Take(head.path_length, strPath) || !texts.Take(head.name_length, strName) ||
        !texts.Take(head.interp_length, strInterp) || !texts.Take(head.cwd_length, strDirectory) ||
        !texts.Take(head.root_length, strRoot) || !texts.Take(head.args_length, strArgs)) {
        return false;
    }
    event.nUid = head.uid;
    event.nMountNs = head.mount_ns;
    event.nDevice = head.device;
    event.nInode = head.inode;
    event.nMagic = head.fs_magic;
    event.bArgsCut = (head.flags & LAUNCH_ARGS_CUT) != 0;
    event.bArgsUnreadable = (head.flags & LAUNCH_ARGS_UNREADABLE) != 0;
    event.strPath = PathOf(strPath);
    event.strName = UntilNul(strName);
    event.strInterp = UntilNul(strInterp);
    event.strDirectory = PathOf(strDirectory);
    event.strRoot = PathOf(strRoot);
    event.strCommand = JoinArguments(std::move(strArgs));
    return true;
}

}  // namespace

bool DecodeLaunch(const void* pData, size_t nSize, LaunchEvent& event) {
    launch_record head = {};
    if (pData == nullptr || nSize < sizeof(head)) {
        return false;
    }
    std::memcpy(&head, pData, sizeof(head));
    LaunchEvent decoded;
    decoded.nPid = head.pid;
    decoded.nPpid = head.ppid;
    switch (head.type) {
        case LAUNCH_EXEC:
            if (!DecodeExec(
                    head,
                    Texts(static_cast<const char*>(pData) + sizeof(head), nSize - sizeof(head)),
                    decoded)) {
                return false;
            }
            break;
        case LAUNCH_FORK:
            decoded.eKind = LAUNCH_KIND_FORK;
            break;
        case LAUNCH_EXIT:
            decoded.eKind = LAUNCH_KIND_EXIT;
            break;
        default:
            return false;
    }
    event = std::move(decoded);
    return true;
}
