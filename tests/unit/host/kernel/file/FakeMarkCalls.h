// Mounts and directories that are a test's, and what was marked.
#ifndef TESTS_UNIT_HOST_KERNEL_FILE_FAKEMARKCALLS_H
#define TESTS_UNIT_HOST_KERNEL_FILE_FAKEMARKCALLS_H

#include <cerrno>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "host/kernel/file/IMarkCalls.h"

class FakeMarkCalls : public IMarkCalls {
public:
    int Mark(bool bWhole, uint64_t nMask, const std::string& strPath) override {
        if (bWhole) {
            m_whole[strPath] = nMask;
            return m_errors.count(strPath) == 0 ? 0 : m_errors[strPath];
        }
        m_single[strPath] = nMask;
        return m_directories.count(strPath) == 0 ? ENOENT : 0;
    }
    int MarkFile(uint64_t nMask, const std::string& strPath) override {
        m_files[strPath] = nMask;
        return m_errors.count(strPath) == 0 ? 0 : m_errors[strPath];
    }
    std::string Mounts() override { return m_strMounts; }
    uint32_t MountIdOf(const std::string& strPath) override {
        return m_mountIds.count(strPath) == 0 ? 0 : m_mountIds[strPath];
    }
    bool IsDirectory(const std::string& strPath) override {
        return strPath == "/" || m_directories.count(strPath) != 0;
    }
    std::vector<std::string> DirectoriesIn(const std::string& strPath) override {
        std::vector<std::string> names;
        for (const std::string& strDirectory : m_directories) {
            if (strDirectory.rfind(strPath + "/", 0) == 0 &&
                strDirectory.find('/', strPath.size() + 1) == std::string::npos) {
                names.push_back(strDirectory.substr(strPath.size() + 1));
            }
        }
        return names;
    }
    std::string FsidOf(const std::string& strPath) override {
        return m_fsids.count(strPath) == 0 ? "fsid" + strPath : m_fsids[strPath];
    }
    std::string HandleOf(const std::string& strPath) override {
        const auto file = m_handles.find(strPath);
        return file != m_handles.end() ? file->second
                                       : (IsDirectory(strPath) ? "handle" + strPath : "");
    }

    std::string m_strMounts =
        "1 0 8:1 / / rw - ext4 x rw\n2 1 0:5 / /run rw - tmpfs x rw\n"
        "3 1 0:6 / /proc rw - proc x rw\n4 1 8:2 / /srv rw - xfs x rw\n";
    std::set<std::string> m_directories = {
        "/etc", "/etc/cron.d", "/etc/systemd", "/etc/systemd/system", "/run", "/srv"};
    std::map<std::string, uint32_t> m_mountIds;  // where they are known
    std::map<std::string, std::string> m_fsids;  // where they are others than by the path
    std::map<std::string, int> m_errors;
    std::map<std::string, uint64_t> m_whole;
    std::map<std::string, uint64_t> m_single;
    std::map<std::string, uint64_t> m_files;
    std::map<std::string, std::string> m_handles;  // of files
};

#endif
