#include "host/kernel/file/FanotifySensor.h"

#include <fcntl.h>
#include <sys/fanotify.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "host/base/MountTable.h"
#include "host/base/UniqueFd.h"
#include "host/kernel/file/DirectoryNames.h"
#include "host/kernel/file/FanotifyMarks.h"
#include "host/kernel/file/FileEvent.h"
#include "host/kernel/file/WorkPace.h"
#include "host/program/FileLook.h"

namespace {

// Since Linux 5.17; before that a rename is two events that nothing ties together.
constexpr unsigned REPORT = FAN_CLASS_NOTIF | FAN_CLOEXEC | FAN_NONBLOCK | FAN_REPORT_DFID_NAME |
                            FAN_REPORT_FID | FAN_REPORT_TARGET_FID;
constexpr unsigned REPORT_OLD = REPORT & ~static_cast<unsigned>(FAN_REPORT_TARGET_FID);
constexpr uint64_t EVENTS_COMMON =
    FAN_CREATE | FAN_DELETE | FAN_CLOSE_WRITE | FAN_OPEN_EXEC | FAN_ONDIR;
constexpr uint64_t EVENTS = EVENTS_COMMON | FAN_RENAME;
constexpr uint64_t EVENTS_OLD = EVENTS_COMMON | FAN_MOVED_FROM | FAN_MOVED_TO;

constexpr int HANDLE_ANY = 0x200;  // AT_HANDLE_FID: also one that cannot be opened

class KernelCalls : public IMarkCalls {
public:
    explicit KernelCalls(const UniqueFd& group) : m_group(group) {}

    int Mark(bool bWhole, uint64_t nMask, const std::string& strPath) override {
        const unsigned nFlags = FAN_MARK_ADD | (bWhole ? FAN_MARK_FILESYSTEM : FAN_MARK_ONLYDIR);
        return fanotify_mark(m_group.Get(), nFlags, nMask, AT_FDCWD, strPath.c_str()) == 0 ? 0
                                                                                           : errno;
    }
    int MarkFile(uint64_t nMask, const std::string& strPath) override {
        const unsigned nFlags = FAN_MARK_ADD | FAN_MARK_DONT_FOLLOW;
        return fanotify_mark(m_group.Get(), nFlags, nMask, AT_FDCWD, strPath.c_str()) == 0 ? 0
                                                                                           : errno;
    }
    std::string Mounts() override { return mount_table::Text(); }
    uint32_t MountIdOf(const std::string& strPath) override {
        FileStatus status;
        return file_look::AtItself(strPath, status) ? status.nMountId : 0;
    }
    bool IsDirectory(const std::string& strPath) override {
        FileStatus status;
        return file_look::AtItself(strPath, status) && S_ISDIR(status.st_mode);
    }
    std::vector<std::string> DirectoriesIn(const std::string& strPath) override;
    std::string FsidOf(const std::string& strPath) override {
        struct statfs status = {};
        if (statfs(strPath.c_str(), &status) != 0) {
            return "";
        }
        return std::string(reinterpret_cast<const char*>(&status.f_fsid), sizeof(status.f_fsid));
    }
    std::string HandleOf(const std::string& strPath) override;

private:
    const UniqueFd& m_group;
};

std::vector<std::string> KernelCalls::DirectoriesIn(const std::string& strPath) {
    std::vector<std::string> names;
    for (std::string& strName : directory_names::In(strPath, SIZE_MAX)) {
        if (IsDirectory(strPath + "/" + strName)) {
            names.push_back(std::move(strName));
        }
    }
    return names;
}

std::string KernelCalls::HandleOf(const std::string& strPath) {
    alignas(file_handle) char szHandle[sizeof(file_handle) + MAX_HANDLE_SZ] = {};
    auto* const pHandle = reinterpret_cast<file_handle*>(szHandle);
    int nMount = 0;
    for (const int nFlags : {0, HANDLE_ANY}) {
        pHandle->handle_bytes = MAX_HANDLE_SZ;
        if (name_to_handle_at(AT_FDCWD, strPath.c_str(), pHandle, &nMount, nFlags) == 0) {
            return FsidOf(strPath) +
                   std::string(szHandle, sizeof(file_handle) + pHandle->handle_bytes);
        }
    }
    return "";
}

class FanotifySensor : public IFileSensor {
public:
    FanotifySensor(std::shared_ptr<WatchedPaths> pPlaces, bool bAll)
        : m_pPlaces(std::move(pPlaces)), m_bAll(bAll), m_calls(m_group) {}

    bool Open(std::string& strError) override;
    int Descriptor() const override { return m_group.Get(); }
    size_t Read(char* pBuffer, size_t nSize) override;
    void Detach() override;
    MountChange Tend() override;
    void OnDirectory(const std::string& strPath) override { m_pMarks->OnDirectory(strPath); }
    void OnLinked(const std::string& strPath) override { m_pMarks->OnLinked(strPath); }
    bool IsFile(const std::string& strPath, std::string_view strHandle) override {
        return !strHandle.empty() && m_calls.HandleOf(strPath) == strHandle;
    }
    void Ignore(const std::string& strDirectory) override;
    std::vector<std::string> TakeNotices() override;
    std::string PathOf(std::string_view strHandle) override;
    std::string PathInPlace(const std::string& strPath) const override {
        return m_pMarks->PathInPlace(strPath);
    }
    std::string FsTypeOf(std::string_view strHandle, const std::string& strPath) const override {
        return strHandle.empty() ? m_pMarks->TypeAt(strPath)
                                 : m_pMarks->TypeOf(file_handle_key::FileSystem(strHandle),
                                                    file_handle_key::IsOverlay(strHandle));
    }
    uint32_t KindOf(std::string_view strHandle) const override;
    bool ReportsStarts(uint32_t nDevice) const override { return m_pMarks->IsWhole(nDevice); }

private:
    bool MayWatch() const;
    UniqueFd OpenHandle(std::string_view strHandle) const;
    std::string OpenedPath(std::string_view strHandle) const;

    const std::shared_ptr<WatchedPaths> m_pPlaces;
    const bool m_bAll;
    UniqueFd m_group;
    UniqueFd m_mounts;  // the mount table
    WorkPace m_pace;    // of looks at it
    KernelCalls m_calls;
    std::unique_ptr<FanotifyMarks> m_pMarks;
    uint64_t m_nEvents = EVENTS;
    std::vector<std::string> m_notices;
};

std::string Refusal(int nError) {
    const std::string strText =
        std::string("the kernel refuses to report file operations: ") + std::strerror(nError);
    if (nError == EPERM) {
        return strText +
               "; run as root, or with the capabilities CAP_SYS_ADMIN and CAP_DAC_READ_SEARCH";
    }
    return strText + "; it needs Linux 5.9 or newer with CONFIG_FANOTIFY, as Debian's kernels are";
}

// Since Linux 5.13 anybody may have a group, to watch single directories, without process numbers.
bool FanotifySensor::MayWatch() const {
    constexpr unsigned WHOLE = FAN_MARK_FILESYSTEM;
    if (fanotify_mark(m_group.Get(), FAN_MARK_ADD | WHOLE, FAN_OPEN_EXEC, AT_FDCWD, "/") == 0) {
        (void)fanotify_mark(m_group.Get(), FAN_MARK_REMOVE | WHOLE, FAN_OPEN_EXEC, AT_FDCWD, "/");
        return true;
    }
    return errno != EPERM;
}

bool FanotifySensor::Open(std::string& strError) {
    m_group.Reset(fanotify_init(REPORT, O_RDONLY));
    if (!m_group && errno == EINVAL) {
        m_nEvents = EVENTS_OLD;
        m_group.Reset(fanotify_init(REPORT_OLD, O_RDONLY));
        m_notices.emplace_back(
            "this kernel is older than Linux 5.17: a rename is reported as two operations, and "
            "paths below a directory that is removed at once may be missing");
    }
    if (!m_group || !MayWatch()) {
        strError = Refusal(errno);
        return false;
    }
    m_mounts = mount_table::Open();
    m_pMarks = std::make_unique<FanotifyMarks>(m_calls, *m_pPlaces, m_nEvents, m_bAll);
    (void)m_pMarks->Refresh();
    if (m_pMarks->IsEmpty()) {
        strError = "no file system that holds a watched place could be found";
        return false;
    }
    return true;
}

size_t FanotifySensor::Read(char* pBuffer, size_t nSize) {
    for (;;) {
        const ssize_t nRead = read(m_group.Get(), pBuffer, nSize);
        if (nRead >= 0 || errno != EINTR) {
            return nRead > 0 ? static_cast<size_t>(nRead) : 0;
        }
    }
}

void FanotifySensor::Detach() {
    for (const unsigned nKind : {0U, static_cast<unsigned>(FAN_MARK_FILESYSTEM)}) {
        (void)fanotify_mark(m_group.Get(), FAN_MARK_FLUSH | nKind, 0, AT_FDCWD, "/");
    }
}

MountChange FanotifySensor::Tend() {
    const auto begin = WorkPace::Clock::now();
    if (!m_pace.MayBegin(begin) || !mount_table::HasChanged(m_mounts)) {
        return NO_MOUNTS;
    }
    const bool bPlaces = m_pMarks->Refresh();
    m_pace.Ended(begin, WorkPace::Clock::now());
    return bPlaces ? PLACE_MOUNTS : OTHER_MOUNTS;
}

void FanotifySensor::Ignore(const std::string& strDirectory) {
    const uint64_t nMask = (m_nEvents & ~static_cast<uint64_t>(FAN_OPEN_EXEC)) | FAN_EVENT_ON_CHILD;
    if (fanotify_mark(m_group.Get(), FAN_MARK_ADD | FAN_MARK_IGNORE_SURV, nMask, AT_FDCWD,
                      strDirectory.c_str()) != 0) {
        // Before Linux 6.0. Refused: its own process number keeps the host's doings out.
        (void)fanotify_mark(m_group.Get(),
                            FAN_MARK_ADD | FAN_MARK_IGNORED_MASK | FAN_MARK_IGNORED_SURV_MODIFY,
                            nMask, AT_FDCWD, strDirectory.c_str());
    }
}

std::vector<std::string> FanotifySensor::TakeNotices() {
    std::vector<std::string> notices = std::exchange(m_notices, {});
    for (std::string& strNotice : m_pMarks->TakeNotices()) {
        notices.push_back(std::move(strNotice));
    }
    return notices;
}

std::string FanotifySensor::PathOf(std::string_view strHandle) {
    std::string strPath = OpenedPath(strHandle);
    // Not every file system can open a handle.
    return strPath.empty() ? m_pMarks->MarkedPath(strHandle) : strPath;
}

// No mount is held open: that would keep it from being unmounted.
UniqueFd FanotifySensor::OpenHandle(std::string_view strHandle) const {
    const size_t nHandle = strHandle.size() - file_handle_key::FSID_BYTES;
    alignas(file_handle) char szHandle[sizeof(file_handle) + MAX_HANDLE_SZ] = {};
    if (nHandle > sizeof(szHandle)) {
        return {};
    }
    std::memcpy(szHandle, strHandle.data() + file_handle_key::FSID_BYTES, nHandle);
    UniqueFd directory;
    for (const std::string& strPoint : m_pMarks->PointsOf(file_handle_key::FileSystem(strHandle),
                                                          file_handle_key::IsOverlay(strHandle))) {
        const UniqueFd point(open(strPoint.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        directory.Reset(open_by_handle_at(point.Get(), reinterpret_cast<file_handle*>(szHandle),
                                          O_PATH | O_CLOEXEC));
        if (directory) {
            break;
        }
    }
    return directory;
}

uint32_t FanotifySensor::KindOf(std::string_view strHandle) const {
    const UniqueFd file = OpenHandle(strHandle);
    struct stat status = {};
    return file && fstat(file.Get(), &status) == 0 ? status.st_mode & S_IFMT : 0;
}

std::string FanotifySensor::OpenedPath(std::string_view strHandle) const {
    const UniqueFd directory = OpenHandle(strHandle);
    struct stat status = {};
    if (!directory || fstat(directory.Get(), &status) != 0 || status.st_nlink == 0) {
        return "";
    }
    return file_look::LinkText("/proc/self/fd/" + std::to_string(directory.Get()));
}

}  // namespace

std::unique_ptr<IFileSensor> MakeFileSensor(std::shared_ptr<WatchedPaths> pPlaces, bool bAll) {
    return std::make_unique<FanotifySensor>(std::move(pPlaces), bAll);
}
