// Files that are held as those of programs that were started.
#ifndef TESTS_SUPPORT_HOST_HELDFILES_H
#define TESTS_SUPPORT_HOST_HELDFILES_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/sysmacros.h>

#include <ctime>
#include <memory>
#include <string>

#include "host/program/FileLook.h"
#include "host/program/HeldFile.h"
#include "tests/support/Event.h"

// The file at strPath as it is now. It returns when the clock that files are stamped with has gone
// on, so that a change from now on has another time.
inline std::shared_ptr<const HeldFile> HoldFile(const std::string& strPath,
                                                int nFlags = O_RDONLY | O_NONBLOCK) {
    UniqueFd fd(open(strPath.c_str(), nFlags | O_CLOEXEC));
    FileStatus status;
    EXPECT_TRUE(file_look::AtDescriptor(fd.Get(), status)) << strPath;
    EXPECT_TRUE(Eventually([&status] {
        timespec now = {};
        (void)clock_gettime(CLOCK_REALTIME_COARSE, &now);
        return now.tv_sec * int64_t{1000000000} + now.tv_nsec > status.Changed();
    }));
    const FileVersion version = {major(status.st_dev) << 20 | minor(status.st_dev), status.st_ino,
                                 static_cast<uint64_t>(status.st_size), status.Changed()};
    return std::make_shared<HeldFile>(std::move(fd), version, status, strPath);
}

// The same file, of which no change time was known at the start; another descriptor.
inline std::shared_ptr<const HeldFile> HoldUnknown(const std::string& strPath) {
    const auto pKnown = HoldFile(strPath);
    const FileVersion version = {pKnown->Version().nDevice, pKnown->Version().nInode, 0, 0};
    return std::make_shared<HeldFile>(UniqueFd(open(strPath.c_str(), O_RDONLY | O_CLOEXEC)),
                                      version, pKnown->Status(), strPath);
}

// The same file, of which nobody knows what it held at the start; a version of its own.
inline std::shared_ptr<const HeldFile> HoldUnsure(const std::string& strPath, uint64_t nFresh) {
    const auto pKnown = HoldFile(strPath);
    FileVersion version = pKnown->Version();
    version.nFresh = nFresh;
    return std::make_shared<HeldFile>(UniqueFd(open(strPath.c_str(), O_RDONLY | O_CLOEXEC)),
                                      version, pKnown->Status(), strPath, false);
}

#endif
