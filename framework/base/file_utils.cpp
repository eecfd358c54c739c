#include "framework/base/file_utils.h"

#include <sys/stat.h>

#include <cstddef>

namespace {

bool Look(const std::string& strPath, FOLLOW_LINK_TYPE eFollow, struct stat& status) {
    // The system would look at the text up to the NUL, which is another file's path.
    if (strPath.find('\0') != std::string::npos) {
        return false;
    }
    const int nResult = eFollow == FOLLOW_LINK_NO ? lstat(strPath.c_str(), &status)
                                                  : stat(strPath.c_str(), &status);
    return nResult == 0;
}

}  // namespace

namespace file_utils {

bool IsFile(const std::string& strPath, FOLLOW_LINK_TYPE eFollow) {
    struct stat status = {};
    return Look(strPath, eFollow, status) && S_ISREG(status.st_mode);
}

bool IsExist(const std::string& strPath, FOLLOW_LINK_TYPE eFollow) {
    struct stat status = {};
    return Look(strPath, eFollow, status);
}

std::string GetFileName(const std::string& strPath) {
    const size_t nSlash = strPath.rfind('/');
    return nSlash == std::string::npos ? strPath : strPath.substr(nSlash + 1);
}

std::string GetFileSuffix(const std::string& strPath) {
    const std::string strName = GetFileName(strPath);
    const size_t nPoint = strName.rfind('.');
    return nPoint == std::string::npos ? "" : strName.substr(nPoint + 1);
}

}  // namespace file_utils
