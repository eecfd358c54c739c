#include "host/kernel/launch/ExecNotices.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/fanotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "host/base/MountTable.h"
#include "host/kernel/launch/ProcessLook.h"
#include "host/program/FileLook.h"

namespace {

constexpr size_t EVENT_BYTES = 16384;

}  // namespace

bool ExecNotices::Open(std::string& strError) {
    m_group.Reset(fanotify_init(FAN_CLASS_NOTIF | FAN_CLOEXEC | FAN_NONBLOCK,
                                O_RDONLY | O_LARGEFILE | O_CLOEXEC | O_NOATIME | O_NONBLOCK));
    if (!m_group) {
        strError = std::string("the kernel refuses to report executed files: ") +
                   std::strerror(errno) +
                   "; it needs root, or the capability CAP_SYS_ADMIN, and Linux 5.0 or newer with "
                   "CONFIG_FANOTIFY";
        return false;
    }
    m_mounts = mount_table::Open();
    Mark();
    return true;
}

void ExecNotices::Mark() {
    m_devices.clear();
    m_strUnmarked.clear();
    for (const MountEntry& mount : mount_table::Parse(mount_table::Text())) {
        if (!mount_table::IsLocal(mount.strType) || m_devices.count(mount.nDevice) != 0) {
            continue;
        }
        const char* const pszPoint = mount.strPoint.c_str();
        FileStatus status;
        // A mount that another one hides leads to that one: what was marked is what stat says.
        if (fanotify_mark(m_group.Get(), FAN_MARK_ADD | FAN_MARK_FILESYSTEM, FAN_OPEN_EXEC,
                          AT_FDCWD, pszPoint) != 0) {
            m_strUnmarked += (m_strUnmarked.empty() ? "" : ", ") + mount.strPoint;
        } else if (file_look::AtTarget(mount.strPoint, status)) {
            m_devices.insert(process_look::IdOf(status).nDevice);
        }
    }
}

void ExecNotices::Read(const Sink& fnSink, int nMostReads) {
    if (mount_table::HasChanged(m_mounts)) {
        Mark();
    }
    alignas(fanotify_event_metadata) char bytes[EVENT_BYTES];
    // No more than the kernel keeps: who opens faster than this reads does not hold it.
    for (int i = 0; i < nMostReads; ++i) {
        const ssize_t nRead = read(m_group.Get(), bytes, sizeof(bytes));
        if (nRead > 0) {
            TakeEvents(bytes, static_cast<size_t>(nRead), fnSink);
        } else if (nRead == 0 || errno == EBADF || errno == EINVAL) {
            return;
        } else if (errno == EAGAIN) {
            // Nothing waits, or a lease is on the next file: nobody waits for whoever holds it.
            pollfd group = {m_group.Get(), POLLIN, 0};
            if (poll(&group, 1, 0) <= 0) {
                return;
            }
        }
        // Anything else belongs to one file that could not be opened; the next may be.
    }
}

void ExecNotices::TakeEvents(const char* pBytes, size_t nSize, const Sink& fnSink) {
    fanotify_event_metadata event = {};
    for (size_t nAt = 0; nAt + sizeof(event) <= nSize; nAt += event.event_len) {
        std::memcpy(&event, pBytes + nAt, sizeof(event));
        if (event.event_len < sizeof(event)) {
            return;
        }
        if ((event.mask & FAN_Q_OVERFLOW) != 0) {
            fnSink(0, UniqueFd());
        } else if (event.fd >= 0) {
            fnSink(static_cast<uint32_t>(event.pid), UniqueFd(event.fd));
        }
    }
}
