#include "host/doctor/DoctorSensors.h"

#include <fcntl.h>
#include <sys/fanotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iterator>
#include <memory>
#include <set>

#include "host/base/MountTable.h"
#include "host/base/UniqueFd.h"

namespace doctor {

namespace {

std::vector<Finding> OfFileSensor(const SensorMakers& makers,
                                  const std::shared_ptr<WatchedPaths>& pPlaces) {
    const std::unique_ptr<IFileSensor> pSensor = makers.fnFiles(pPlaces, false);
    std::string strError;
    if (!pSensor->Open(strError)) {
        return {{FINDING_FAILED, "file operations", strError, "watch --no-files goes without"}};
    }
    return {{FINDING_OK, "file operations", "fanotify reports them", ""}};
}

// One mark on each file system that holds a watched place; they go with the group.
std::vector<Finding> OfMarks(const WatchedPaths& places) {
    std::vector<Finding> findings;
    const UniqueFd group(fanotify_init(FAN_CLASS_NOTIF | FAN_CLOEXEC | FAN_REPORT_DFID_NAME, 0));
    if (!group) {
        return findings;  // the file sensor's own finding says why
    }
    const std::vector<MountEntry> mounts = mount_table::Parse(mount_table::Text());
    std::set<uint32_t> devices;
    for (const WatchedPaths::Directory& place : places.Directories()) {
        const MountEntry* const pMount = mount_table::MountOf(mounts, place.strPath);
        if (pMount == nullptr || !devices.insert(pMount->nDevice).second) {
            continue;
        }
        const int nResult =
            fanotify_mark(group.Get(), FAN_MARK_ADD | FAN_MARK_FILESYSTEM, FAN_CREATE | FAN_ONDIR,
                          AT_FDCWD, pMount->strPoint.c_str());
        findings.push_back(OfMark(pMount->strPoint, pMount->strType, nResult == 0 ? 0 : errno));
    }
    return findings;
}

}  // namespace

std::vector<Finding> OfLaunchSensors(
    const std::vector<std::pair<std::string, std::string>>& attempts) {
    bool bAny = false;
    for (const auto& [strWord, strRefusal] : attempts) {
        bAny = bAny || strRefusal.empty();
    }
    std::vector<Finding> findings;
    bool bBetter = false;  // one before it works, so it is not needed
    for (const auto& [strWord, strRefusal] : attempts) {
        if (strRefusal.empty()) {
            findings.push_back({FINDING_OK, "launches by " + strWord, "works", ""});
            bBetter = true;
        } else {
            const FindingState eLacking = bBetter ? FINDING_OK : FINDING_WARNING;
            findings.push_back(
                {bAny ? eLacking : FINDING_FAILED, "launches by " + strWord,
                 (bBetter ? "not needed; " : "") + strRefusal,
                 bBetter ? ""
                         : "remove that cause; until then watch uses the next one that works"});
        }
    }
    return findings;
}

Finding OfMark(const std::string& strPoint, const std::string& strType, int nError) {
    const std::string strCheck = "file system " + strPoint;
    if (nError == 0) {
        return {FINDING_OK, strCheck, strType + ", can be watched whole", ""};
    }
    const std::string strReason = strType + ", cannot be watched whole: " + std::strerror(nError);
    if (nError == EPERM) {
        return {FINDING_FAILED, strCheck, strReason, "run as root or with CAP_SYS_ADMIN"};
    }
    return {FINDING_WARNING, strCheck,
            strReason + "; only the watched directories that are there are reported",
            "put the watched places on a file system such as ext4 or xfs"};
}

std::vector<Finding> OfSensors(const SensorMakers& makers,
                               const std::shared_ptr<WatchedPaths>& pPlaces) {
    std::vector<std::pair<std::string, std::string>> attempts;
    for (const std::string& strWord : SensorWords()) {
        if (strWord == "auto") {
            continue;
        }
        const std::unique_ptr<ILaunchSensor> pSensor = makers.fnLaunches(strWord);
        std::string strError;
        const bool bOpen = pSensor->Open(strError);
        attempts.emplace_back(strWord, bOpen ? "" : strError);
    }
    std::vector<Finding> findings = OfLaunchSensors(attempts);
    for (const std::vector<Finding>& more : {OfFileSensor(makers, pPlaces), OfMarks(*pPlaces)}) {
        findings.insert(findings.end(), more.begin(), more.end());
    }
    return findings;
}

}  // namespace doctor
