// A tree of files that is a test's, for whoever looks by a FileLook and a NamesIn.
#ifndef TESTS_UNIT_HOST_KERNEL_FILE_FAKETREE_H
#define TESTS_UNIT_HOST_KERNEL_FILE_FAKETREE_H

#include <sys/stat.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "host/kernel/file/DirectoryNames.h"
#include "host/program/FileLook.h"

class FakeTree {
public:
    struct File {
        uint64_t nInode = 1;
        mode_t nKind = S_IFREG;
        int64_t nSize = 0;
        int64_t tmWritten = 0;
        int64_t tmChanged = 0;
        uint64_t nDevice = 1;
        nlink_t nLinks = 1;
    };

    FileLook Look() {
        return [this](const std::string& strPath, FileStatus& status) {
            const auto found = files.find(strPath);
            if (found == files.end()) {
                return false;
            }
            ++nLooks;
            status.st_ino = found->second.nInode;
            status.st_mode = found->second.nKind;
            status.st_size = found->second.nSize;
            status.st_mtim.tv_nsec = found->second.tmWritten;
            status.st_ctim.tv_nsec = found->second.tmChanged;
            status.st_dev = found->second.nDevice;
            status.st_nlink = found->second.nLinks;
            return true;
        };
    }
    NamesIn Names() {
        return [this](const std::string& strDirectory, size_t nMost) {
            std::vector<std::string> names;
            const std::string strBelow = strDirectory + "/";
            for (const auto& file : files) {
                if (names.size() < nMost && file.first.rfind(strBelow, 0) == 0 &&
                    file.first.find('/', strBelow.size()) == std::string::npos) {
                    names.push_back(file.first.substr(strBelow.size()));
                }
            }
            return names;
        };
    }

    std::map<std::string, File> files;  // by path, directories too
    int nLooks = 0;                     // that found something
};

#endif
