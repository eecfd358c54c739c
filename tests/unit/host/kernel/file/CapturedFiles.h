// A FileSource over a sensor whose events are a test's own bytes, places and programs of the test,
// and an observer that keeps what is reported to it.
#ifndef TESTS_UNIT_HOST_KERNEL_FILE_CAPTUREDFILES_H
#define TESTS_UNIT_HOST_KERNEL_FILE_CAPTUREDFILES_H

#include <gtest/gtest.h>
#include <sys/sysmacros.h>

#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "host/kernel/file/FileSource.h"
#include "tests/support/host/FakeFileSensor.h"
#include "tests/unit/host/kernel/file/FileEventBytes.h"

namespace captured_files {

using file_event_bytes::Handle;

constexpr uint32_t CRON = 1;  // inodes of directories
constexpr uint32_t TMP = 2;
constexpr uint32_t UNITS = 3;
constexpr uint32_t GONE = 9;
constexpr uint32_t DISK = 8U << 20 | 1;  // the device that programs lie on

class SeenFiles : public IFileObserver {
public:
    void OnOperation(const FileOperation& operation) override {
        static const char* const ACTS[] = {"create", "write", "rename", "remove"};
        m_lines.push_back(std::string(ACTS[operation.eAct]) + " " + operation.strPath);
        m_operations.push_back(operation);
    }
    void OnOverflow(uint64_t nTimes, uint64_t nTotal) override {
        m_overflows.push_back(std::to_string(nTimes) + " of " + std::to_string(nTotal));
    }
    void OnFileCounters(const FileCounters& counters) override { m_counters = counters; }
    void OnNotice(const std::string& strText) override { m_notices.push_back(strText); }

    std::vector<std::string> m_lines;
    std::vector<FileOperation> m_operations;
    std::vector<std::string> m_overflows;
    std::vector<std::string> m_notices;
    FileCounters m_counters;
};

class FileSourceTest : public testing::Test {
protected:
    FileSourceTest() {
        m_sensor.paths = {{Handle(CRON), "/etc/cron.d"},
                          {Handle(TMP), "/tmp"},
                          {Handle(UNITS), "/usr/lib/systemd/system"}};
        m_sensor.starts = DISK;
        m_options.announce = std::chrono::milliseconds(0);
        m_options.compare = std::chrono::milliseconds(0);
        m_options.fnNames = [this](const std::string& strDirectory, size_t) {
            return m_names[strDirectory];
        };
        m_options.fnLook = [this](const std::string& strPath, struct stat& status) {
            status.st_mode = m_pipes.count(strPath) != 0   ? S_IFIFO
                             : m_links.count(strPath) != 0 ? S_IFLNK
                                                           : S_IFREG;
            status.st_ino = m_inodes.count(strPath) != 0 ? m_inodes[strPath] : 77;
            status.st_nlink = m_nLinks;
            return true;
        };
        m_options.fnLookThrough = [this](const std::string& strPath, struct stat& status) {
            status.st_mode = m_links[strPath];
            return true;
        };
    }

    // With the options that stand there by now.
    FileSource& Source() {
        if (m_pSource == nullptr) {
            m_pSource = std::make_unique<FileSource>(std::make_unique<FakeFileSensor>(m_sensor),
                                                     m_observer, m_places, m_images, m_options);
        }
        return *m_pSource;
    }
    // Everything that strEvents holds, to the observer.
    void Capture(const std::string& strEvents) {
        (void)Source();
        m_sensor.reads.push_back(strEvents);
        while (m_pSource->Read()) {
            m_pSource->Resolve();
        }
        m_pSource->Resolve();
        m_pSource->TakeCounts(false);
    }
    const FileCounters& Counters() const { return m_observer.m_counters; }
    // Process nPid starts the program strPath, inode nInode.
    void Start(uint32_t nPid, const std::string& strPath, uint64_t nInode) {
        m_programs[strPath] = nInode;
        LaunchEvent event;
        event.nPid = nPid;
        event.strPath = strPath;
        event.nDevice = DISK;
        event.nInode = nInode;
        m_images.Note(event, strPath);
    }
    std::vector<std::string> Programs() const {
        std::vector<std::string> programs;
        for (const FileOperation& operation : m_observer.m_operations) {
            programs.push_back(operation.strProgram);
        }
        return programs;
    }

    std::map<std::string, int> m_pipes;
    std::map<std::string, std::vector<std::string>> m_names;  // in a directory
    std::map<std::string, mode_t> m_links;
    std::map<std::string, ino_t> m_inodes;       // of files that do not have 77
    nlink_t m_nLinks = 1;                        // of every file
    std::map<std::string, uint64_t> m_programs;  // path -> inode
    WatchedPaths m_places{
        {}, [](const std::string& strPath) { return strPath == "/lib" ? "/usr/lib" : ""; }};
    ProcessTable m_images{[this](const std::string& strPath, struct stat& status) {
                              const auto found = m_programs.find(strPath);
                              status.st_mode = S_IFREG | 0755;
                              status.st_dev = makedev(8, 1);
                              status.st_ino = found == m_programs.end() ? 0 : found->second;
                              return found != m_programs.end();
                          },
                          "/nowhere"};
    SeenFiles m_observer;
    FakeFileState m_sensor;
    FileSourceOptions m_options;
    std::unique_ptr<FileSource> m_pSource;
};

}  // namespace captured_files

#endif
