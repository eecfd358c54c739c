#include "host/kernel/launch/FileLook.h"

#include <unistd.h>

#include <climits>

bool file_look::AtTarget(const std::string& strPath, struct stat& status) {
    return stat(strPath.c_str(), &status) == 0;
}

bool file_look::AtItself(const std::string& strPath, struct stat& status) {
    return lstat(strPath.c_str(), &status) == 0;
}

std::string file_look::LinkText(const std::string& strLink, int nDir) {
    char szPath[PATH_MAX];
    const ssize_t nLength = readlinkat(nDir, strLink.c_str(), szPath, sizeof(szPath));
    return std::string(szPath, nLength > 0 ? static_cast<size_t>(nLength) : 0);
}
