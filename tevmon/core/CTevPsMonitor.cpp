#include "tevmon/core/CTevPsMonitor.h"

#include <utility>

#include "framework/base/Base64Util.h"
#include "framework/base/file_utils.h"
#include "public/pluginhelper/JsonReaders.h"
#include "public/pluginhelper/LogPrint.h"
#include "tevmon/core/CEventText.h"
#include "tevmon/core/CTevCloudCachoMgr.h"
#include "tevmon/core/CTevCloudInterface.h"
#include "tevmon/core/CUserPathMasker.h"
#include "tevmon/core/EventHelpers.h"

namespace {

constexpr char SOURCE[] = "tevmon/core/CTevPsMonitor";

struct Launch {
    std::string strPath;
    std::string strCmd;
    int32_t nPid = 0;
    int32_t nScriptType = ScriptNone;
    struct stat status = {};
};

std::string CommandLineText(const std::string& strCmd) {
    return strCmd.empty() ? "null" : "2." + Base64Util::Base64Encode(strCmd);
}

// The texts that a launch's event is made of, in the order in which they are computed.
struct LaunchTexts {
    LaunchTexts() = default;
    explicit LaunchTexts(const struct stat& status)
        : strMode(FormatMode(status.st_mode)),
          // As signed numbers: an id above 2147483647 prints negative, which is relied on.
          strUid(std::to_string(static_cast<int32_t>(status.st_uid))),
          strGid(std::to_string(static_cast<int32_t>(status.st_gid))),
          strInode(std::to_string(static_cast<int64_t>(status.st_ino))),
          strAtime(FormatEventTime(status.st_atim.tv_sec, status.st_atim.tv_nsec)),
          strMtime(FormatEventTime(status.st_mtim.tv_sec, status.st_mtim.tv_nsec)),
          strCtime(FormatEventTime(status.st_ctim.tv_sec, status.st_ctim.tv_nsec)) {}

    std::string strMode;
    std::string strUid;
    std::string strGid;
    std::string strInode;
    std::string strAtime;
    std::string strMtime;
    std::string strCtime;
};

std::string LaunchEvent(const Launch& launch, const LaunchTexts& texts) {
    // Made for each query and left out of the event: this is relied on.
    (void)CommandLineText(launch.strCmd);
    CEventText event;
    event.Append("hi.event_name", "CreateProcess");
    event.Append("hi.filemode", texts.strMode);
    event.Append("hi.fileuid", texts.strUid);
    event.Append("hi.filegid", texts.strGid);
    event.Append("hi.fileinode", texts.strInode);
    event.Append("hi.fileatime", texts.strAtime);
    event.Append("hi.filemtime", texts.strMtime);
    event.Append("hi.filectime", texts.strCtime);
    event.Append("hi.process_id", std::to_string(launch.nPid));
    event.Append("hi.process_path", CUserPathMasker::Masked(launch.strPath));
    event.Append("hi.type", std::to_string(launch.nScriptType));
    return event.Text();
}

// False when there is no memory for work, which is a part of the event.
template <class Work>
bool Built(Work work) {
    try {
        work();
        return true;
    } catch (...) {
        return false;
    }
}

// Without bBuilt, or when the event cannot be built, as with a message that cannot be written.
void PostLaunch(Launch& launch, const LaunchTexts& texts, std::string& strKey, bool bBuilt) {
    CTevCloudInterface* pCloud = CTevCloudInterface::Instance();
    if (pCloud == nullptr) {
        return;
    }
    std::string strEvent;
    if (!bBuilt || !Built([&] { strEvent = LaunchEvent(launch, texts); })) {
        (void)pCloud->PostEmpty();
        return;
    }
    // A failed post is logged there; the next launch of the program asks again.
    (void)pCloud->Post({Json::Value(), std::move(launch.strPath), 0, "adid", "10001", "cloudad",
                        std::move(strKey)},
                       strEvent);
}

}  // namespace

bool CTevPsMonitor::Run(const std::string& /*strSender*/, const std::string& strMessage) {
    Json::Value jsonRoot;
    if (!ParseJsonText(strMessage, jsonRoot) || !JsonHasMember(jsonRoot, "param")) {
        return false;
    }
    const Json::Value& jsonParam = JsonMember(jsonRoot, "param");
    for (Json::ArrayIndex i = 0; i < JsonArraySize(jsonParam); ++i) {
        try {
            RunElement(jsonParam[i]);
        } catch (...) {  // one element never costs its neighbours
        }
    }
    return true;
}

void CTevPsMonitor::RunElement(const Json::Value& jsonElement) {
    if (!JsonHasMember(jsonElement, "path")) {
        return;
    }
    Launch launch;
    launch.strPath = JsonText(jsonElement, "path");
    const char* pszPath = launch.strPath.c_str();
    if (!file_utils::IsFile(launch.strPath, FOLLOW_LINK_YES)) {
        return;
    }
    launch.nPid = JsonInt(jsonElement, "pid");
    // Before the status, so also for a file that is gone by then: this order is relied on.
    bool bBuilt = Built([&] {
        launch.strCmd = JsonText(jsonElement, "cmd");
        launch.nScriptType = DetectScriptType(launch.strPath, launch.strCmd);
    });
    if (!StatFile(launch.strPath, launch.status)) {
        LogPrint(LOG_FAIL, SOURCE, "Run", __LINE__, "[CTevPsMonitor] stat faid [%s]", pszPath);
        return;
    }
    LaunchTexts texts;
    bBuilt = Built([&] { texts = LaunchTexts(launch.status); }) && bBuilt;
    // Hashed before the cache is asked: the hash is the cache key.
    std::string strKey = ProgramKey(launch.strPath);
    if (strKey.empty()) {
        LogPrint(LOG_FAIL, SOURCE, "Run", __LINE__, "[CTevPsMonitor] calc md5 faid! [%s][lanuch]",
                 pszPath);
        return;
    }
    CachoRecord entry;
    if (GetLivingRecord(strKey, entry)) {
        LogPrint(LOG_SKIP, SOURCE, "Run", __LINE__, "[CTevPsMonitor] %s in cacho, skip [lanuch]",
                 pszPath);
        return;
    }
    PostLaunch(launch, texts, strKey, bBuilt);
}
