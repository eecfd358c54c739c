#include "host/kernel/launch/LaunchEvent.h"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <utility>

#include "host/kernel/bpf/launch_record.h"

namespace {

constexpr size_t TEXT_MOST = 0xffff;  // what a length of the record can say

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

int64_t Nanos(clockid_t nClock) {
    timespec now = {};
    (void)clock_gettime(nClock, &now);
    return now.tv_sec * int64_t{1000000000} + now.tv_nsec;
}

int64_t StartedAt(const launch_record& head) {
    // Records may hold any number: sums wrap.
    const int64_t nReal = Nanos(CLOCK_REALTIME);  // first: what passes in between makes it earlier
    const auto nBoot = static_cast<uint64_t>(nReal - Nanos(CLOCK_BOOTTIME));
    return head.started == 0 ? 0 : static_cast<int64_t>(nBoot + head.started);
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
    event.nMountId = head.mount_id;
    event.nSize = head.size;
    event.nChanged = head.changed;
    event.nCgroup = head.cgroup;
    event.nStarted = StartedAt(head);
    event.bFresh = (event.nStarted != 0 && event.IsJustAfter(head.changed)) ||
                   (head.flags & LAUNCH_LOOSE_TIMES) != 0;
    event.bArgsCut = (head.flags & LAUNCH_ARGS_CUT) != 0;
    event.bArgsUnreadable = (head.flags & LAUNCH_ARGS_UNREADABLE) != 0;
    event.bPathCut = (head.flags & LAUNCH_PATH_CUT) != 0;
    event.bServed = (head.flags & LAUNCH_SERVED) != 0;
    event.strPath = PathOf(strPath);
    event.strName = UntilNul(strName);
    event.strInterp = UntilNul(strInterp);
    event.strDirectory = PathOf(strDirectory);
    event.strRoot = PathOf(strRoot);
    event.strArguments = strArgs;
    event.strCommand = JoinArguments(std::move(strArgs));
    return true;
}

// "/a/b/c" as "c\0b\0a\0"; "" when a record has no room for it.
std::string NamesOf(const std::string& strPath) {
    std::string strNames;
    for (size_t nEnd = strPath.size(); nEnd > 0;) {
        const size_t nSlash = strPath.rfind('/', nEnd - 1);
        const size_t nBegin = nSlash == std::string::npos ? 0 : nSlash + 1;
        if (nBegin < nEnd) {
            strNames.append(strPath, nBegin, nEnd - nBegin).push_back('\0');
        }
        nEnd = nSlash == std::string::npos ? 0 : nSlash;
    }
    return strNames.size() <= TEXT_MOST ? strNames : "";
}

std::string WithNul(const std::string& strText) {
    return strText.empty() || strText.size() >= TEXT_MOST ? "" : strText + '\0';
}

unsigned short Length(const std::string& strText) {
    return static_cast<unsigned short>(strText.size());
}

}  // namespace

bool DecodeLaunch(const void* pData, size_t nSize, LaunchEvent& event) {
    launch_record head = {};
    if (pData == nullptr || nSize < sizeof(head.life)) {
        return false;
    }
    std::memcpy(&head, pData, std::min(nSize, sizeof(head)));
    LaunchEvent decoded;
    decoded.nPid = head.life.pid;
    decoded.nPpid = head.life.ppid;
    switch (head.life.type) {
        case LAUNCH_EXEC:
            if (nSize < sizeof(head) ||
                !DecodeExec(
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

std::string EncodeLaunch(const LaunchEvent& event) {
    static constexpr unsigned int TYPES[] = {LAUNCH_EXEC, LAUNCH_FORK, LAUNCH_EXIT};
    launch_record head = {};
    head.life = {TYPES[event.eKind], event.nPid, event.nPpid};
    size_t nHead = sizeof(head.life);
    std::string strTexts;
    if (event.eKind == LAUNCH_KIND_EXEC) {
        nHead = sizeof(head);
        const std::string strPath = NamesOf(event.strPath);
        const std::string strName = WithNul(event.strName);
        const std::string strInterp = WithNul(event.strInterp);
        const std::string strDirectory = NamesOf(event.strDirectory);
        const std::string strRoot = NamesOf(event.strRoot);
        std::string strArgs =
            event.strArguments.empty() ? WithNul(event.strCommand) : event.strArguments;
        strArgs.resize(std::min<size_t>(strArgs.size(), LAUNCH_ARGS_MOST));
        head.inode = event.nInode;
        head.mount_id = event.nMountId;
        head.size = event.nSize;
        head.changed = event.nChanged;
        head.cgroup = event.nCgroup;
        head.device = event.nDevice;
        head.mount_ns = event.nMountNs;
        head.uid = event.nUid;
        head.flags =
            (event.bArgsCut || event.strCommand.size() > LAUNCH_ARGS_MOST
                 ? static_cast<unsigned int>(LAUNCH_ARGS_CUT)
                 : 0U) |
            (event.bArgsUnreadable ? static_cast<unsigned int>(LAUNCH_ARGS_UNREADABLE) : 0U) |
            (event.bPathCut ? static_cast<unsigned int>(LAUNCH_PATH_CUT) : 0U) |
            (event.bServed ? static_cast<unsigned int>(LAUNCH_SERVED) : 0U);
        head.path_length = Length(strPath);
        head.name_length = Length(strName);
        head.interp_length = Length(strInterp);
        head.cwd_length = Length(strDirectory);
        head.root_length = Length(strRoot);
        head.args_length = static_cast<unsigned int>(strArgs.size());
        strTexts = strPath + strName + strInterp + strDirectory + strRoot + strArgs;
    }
    return std::string(reinterpret_cast<const char*>(&head), nHead) + strTexts;
}
