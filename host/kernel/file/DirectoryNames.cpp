#include "host/kernel/file/DirectoryNames.h"

#include <dirent.h>

std::vector<std::string> directory_names::In(const std::string& strDirectory, size_t nMost) {
    std::vector<std::string> names;
    DIR* const pDirectory = opendir(strDirectory.c_str());
    if (pDirectory == nullptr) {
        return names;
    }
    for (const dirent* pEntry = nullptr;
         names.size() < nMost && (pEntry = readdir(pDirectory)) != nullptr;) {
        const std::string strName = pEntry->d_name;
        if (strName != "." && strName != "..") {
            names.push_back(strName);
        }
    }
    (void)closedir(pDirectory);
    return names;
}
