#include "tevmon/core/CUserPathMasker.h"

#include <pwd.h>
#include <time.h>

#include <algorithm>
#include <cerrno>
#include <vector>

#include "framework/base/CStr.h"
#include "framework/base/file_utils.h"

namespace {

constexpr char HOME_ROOT[] = "/home/";

std::string Text(const char* pszText) {
    return pszText != nullptr ? pszText : "";
}

// Null at the end of the database and after a failure, which errno then names.
const passwd* NextEntry() {
    errno = 0;
    return getpwent();
}

// The caller's own lack: nothing that was read is worth more than what is known.
bool IsFailure(int nErrno) {
    return nErrno == ENOMEM || nErrno == EIO || nErrno == EMFILE || nErrno == ENFILE ||
           nErrno == EINTR;
}

// Some services leave "no such entry" behind their last one.
bool IsCleanEnd(int nErrno) {
    return nErrno == 0 || nErrno == ENOENT || nErrno == ESRCH;
}

constexpr int64_t SECONDS_TO_NEXT_LOOK = 60;

int64_t SteadySeconds() {
    timespec now = {};
    (void)clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return now.tv_sec;
}

}  // namespace

bool CUserPathMasker::MaskUserPath(std::string& strPath) {
    if (strPath.size() < 2) {
        return true;
    }
    if (m_users.empty() || IsDue()) {
        LoadUsers();
    }
    if (!HoldsUser(strPath)) {
        return true;
    }
    std::vector<std::string> pieces;
    CStr::splitlines(strPath, pieces, '/');
    std::string strMasked = strPath.front() == '/' ? "/" : "";
    for (const std::string& strPiece : pieces) {
        const bool bUser = m_users.count(strPiece) != 0;
        strMasked += bUser ? "$username" : strPiece;
        strMasked += '/';
    }
    if (strPath.back() != '/') {
        strMasked.pop_back();
    }
    strPath = strMasked;
    return true;
}

std::string CUserPathMasker::Masked(std::string strPath) {
    CUserPathMasker* pMasker = Instance();
    if (pMasker != nullptr) {
        (void)pMasker->MaskUserPath(strPath);
    }
    return strPath;
}

bool CUserPathMasker::HoldsUser(std::string_view strPath) const {
    while (!strPath.empty()) {
        const size_t nEnd = std::min(strPath.find('/'), strPath.size());
        // An empty piece is no user: LoadUsers takes none without a name.
        if (nEnd > 0 && m_users.find(strPath.substr(0, nEnd)) != m_users.end()) {
            return true;
        }
        strPath.remove_prefix(std::min(nEnd + 1, strPath.size()));
    }
    return false;
}

bool CUserPathMasker::IsDue() const {
    return m_bPart && SteadySeconds() - m_nRead >= SECONDS_TO_NEXT_LOOK;
}

void CUserPathMasker::LoadUsers() {
    // A failure half-way leaves the old map: a part of the users would stay for the process's life.
    std::map<std::string, LocalUser, std::less<>> users;
    m_nRead = SteadySeconds();
    setpwent();
    while (const passwd* pEntry = NextEntry()) {
        const std::string strName = Text(pEntry->pw_name);
        const std::string strHome = Text(pEntry->pw_dir);
        if (!file_utils::IsExist(strHome, FOLLOW_LINK_YES) || strName.empty() ||
            strHome.compare(0, sizeof(HOME_ROOT) - 1, HOME_ROOT) != 0) {
            continue;
        }
        (void)users.try_emplace(strName, LocalUser{strName, pEntry->pw_uid, pEntry->pw_gid, strHome,
                                                   Text(pEntry->pw_shell)});
    }
    const int nErrno = errno;
    setpwent();  // rewound, not closed with endpwent: this is relied on
    if (IsFailure(nErrno)) {
        return;
    }
    m_bPart = !IsCleanEnd(nErrno);
    if (m_bPart) {
        users.merge(m_users);
    }
    m_users.swap(users);
}
