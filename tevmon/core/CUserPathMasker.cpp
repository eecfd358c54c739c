#include "tevmon/core/CUserPathMasker.h"

#include <pwd.h>

#include <vector>

#include "framework/base/CStr.h"
#include "framework/base/file_utils.h"

namespace {

constexpr char HOME_ROOT[] = "/home/";

std::string Text(const char* pszText) {
    return pszText != nullptr ? pszText : "";
}

}  // namespace

bool CUserPathMasker::MaskUserPath(std::string& strPath) {
    if (strPath.size() < 2) {
        return true;
    }
    if (m_users.empty()) {
        LoadUsers();
    }
    std::vector<std::string> pieces;
    CStr::splitlines(strPath, pieces, '/');
    std::string strMasked = strPath.front() == '/' ? "/" : "";
    bool bReplaced = false;
    for (const std::string& strPiece : pieces) {
        const bool bUser = m_users.count(strPiece) != 0;
        strMasked += bUser ? "$username" : strPiece;
        strMasked += '/';
        bReplaced = bReplaced || bUser;
    }
    if (!bReplaced) {
        return true;
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

void CUserPathMasker::LoadUsers() {
    m_users.clear();
    setpwent();
    while (const passwd* pEntry = getpwent()) {
        const std::string strName = Text(pEntry->pw_name);
        const std::string strHome = Text(pEntry->pw_dir);
        if (!file_utils::IsExist(strHome, FOLLOW_LINK_YES) || strName.empty() ||
            strHome.compare(0, sizeof(HOME_ROOT) - 1, HOME_ROOT) != 0) {
            continue;
        }
        (void)m_users.try_emplace(strName, LocalUser{strName, pEntry->pw_uid, pEntry->pw_gid,
                                                     strHome, Text(pEntry->pw_shell)});
    }
    setpwent();  // rewound, not closed with endpwent: this is relied on
}
