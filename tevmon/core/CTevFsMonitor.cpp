#include "tevmon/core/CTevFsMonitor.h"

#include <optional>
#include <utility>

#include "public/pluginhelper/JsonReaders.h"
#include "public/pluginhelper/LogPrint.h"
#include "tevmon/core/AutoRunLocations.h"
#include "tevmon/core/CTevCloudCachoMgr.h"
#include "tevmon/core/CTevCloudInterface.h"
#include "tevmon/core/CUserPathMasker.h"
#include "tevmon/core/EventHelpers.h"

namespace {

constexpr char SOURCE[] = "tevmon/core/CTevFsMonitor";

// A pipe is not asked about again while the verdict on its maker is at most this.
constexpr int32_t PIPE_SKIP_LEVEL = 20;

FsOpEvent ReadEvent(const Json::Value& jsonElement) {
    FsOpEvent event;
    event.path = JsonText(jsonElement, "path");
    event.path_class = GetPathClass(event.path);
    event.exe_pid = JsonInt(jsonElement, "exe_pid");
    event.exe_path = JsonText(jsonElement, "exe_path");
    event.ino = JsonInt(jsonElement, "ino");  // 32 bits wide on the wire
    event.disk_type = JsonText(jsonElement, "disk_type");
    event.fs_type = JsonText(jsonElement, "fs_type");
    event.operation = JsonText(jsonElement, "optertion");  // spelled so on the wire
    event.result = JsonText(jsonElement, "result");
    event.time = JsonInt64(jsonElement, "time");
    return event;
}

// Posts the query that make builds, which appends its event's items to an array.
template <class Make>
void PostQuery(Make make) {
    CTevCloudInterface* pCloud = CTevCloudInterface::Instance();
    if (pCloud == nullptr) {
        return;
    }
    std::optional<CloudQuery> query;
    try {
        Json::Value jsonEvent(Json::arrayValue);
        query.emplace(make(jsonEvent));
        query->jsonExt = std::move(jsonEvent);
    } catch (...) {  // no memory; as with a message that cannot be written
        (void)pCloud->PostEmpty();
        return;
    }
    (void)pCloud->Post(*query);  // a failed post is logged there
}

}  // namespace

struct CTevFsMonitor::FileOperation {
    const char* pszFunction;   // named in log lines
    const char* pszOperation;  // of the events it takes
    bool bClassTwo;            // takes events of path class 2 as well
    const char* pszEventName;
    const char* pszPathKey;  // the item that holds the masked path
    bool bGapTime;           // ends in an item with the file's modification time
    bool bNewPath;           // ends in an item for the new path, always ""
    int32_t nPathType;
};

bool CTevFsMonitor::ParseFsOpMsg(const std::string& /*strSender*/, const std::string& strContent) {
    Json::Value jsonRoot;
    if (!ParseJsonText(strContent, jsonRoot) || !JsonHasMember(jsonRoot, "param")) {
        return false;
    }
    const Json::Value& jsonParam = JsonMember(jsonRoot, "param");
    for (Json::ArrayIndex i = 0; i < JsonArraySize(jsonParam); ++i) {
        try {
            HandleElement(jsonParam[i]);
        } catch (...) {  // one element never costs its neighbours
        }
    }
    return true;
}

void CTevFsMonitor::HandleElement(const Json::Value& jsonElement) {
    if (!JsonHasMember(jsonElement, "path")) {
        return;
    }
    const FsOpEvent event = ReadEvent(jsonElement);
    if (event.operation == "create") {
        Fenced(&CTevFsMonitor::FileCreateHandler, event);
        Fenced(&CTevFsMonitor::ProcessPipeHandler, event);
        Fenced(&CTevFsMonitor::AddAutoRunsHandler, event);
    } else if (event.operation == "remove") {
        FileDeleteHandler(event);
    } else if (event.operation == "rename") {
        FileRenameHandler(event);
    } else if (event.operation == "write") {
        FileModifyHandler(event);
    }
}

// What goes wrong in one handler keeps no other from the event.
void CTevFsMonitor::Fenced(void (CTevFsMonitor::*pfnHandler)(const FsOpEvent&),
                           const FsOpEvent& event) {
    try {
        (this->*pfnHandler)(event);
    } catch (...) {  // out of memory, or a router that throws
    }
}

bool CTevFsMonitor::IsInCacho(const std::string& strKey) {
    CachoRecord entry;
    return GetLivingRecord(strKey, entry);
}

bool CTevFsMonitor::CompareCachoLevel(const std::string& strKey, int32_t nValue,
                                      const std::string& strOp, bool& bResult) {
    CachoRecord entry;
    if (!GetLivingRecord(strKey, entry)) {
        return false;
    }
    if (strOp == ">") {
        bResult = nValue > entry.nLevel;
    } else if (strOp == ">=") {
        bResult = nValue >= entry.nLevel;
    } else if (strOp == "<") {
        bResult = nValue < entry.nLevel;
    } else if (strOp == "<=") {
        bResult = nValue <= entry.nLevel;
    } else if (strOp == "==") {
        bResult = nValue == entry.nLevel;
    }
    return true;
}

// Create takes class 1 only and posts path type 0 as modify does, while delete and rename post 1;
// rename never carries the new name: these differences are relied on.
const CTevFsMonitor::FileOperation CTevFsMonitor::FILE_OPERATIONS[] = {
    // clang-format off
    {"FileCreateHandler", "create", false, "FileCreate", "hi.file_create_path", false, false, 0},
    {"FileDeleteHandler", "remove", true,  "FileDelete", "hi.file_path",        false, false, 1},
    {"FileModifyHandler", "write",  true,  "FileModify", "hi.file_path",        true,  false, 0},
    {"FileRenameHandler", "rename", true,  "FileRename", "hi.old_file_path",    false, true,  1},
    // clang-format on
};

void CTevFsMonitor::FileCreateHandler(const FsOpEvent& event) {
    HandleFileOperation(event, FILE_OPERATIONS[0]);
}

void CTevFsMonitor::FileDeleteHandler(const FsOpEvent& event) {
    HandleFileOperation(event, FILE_OPERATIONS[1]);
}

void CTevFsMonitor::FileModifyHandler(const FsOpEvent& event) {
    HandleFileOperation(event, FILE_OPERATIONS[2]);
}

void CTevFsMonitor::FileRenameHandler(const FsOpEvent& event) {
    HandleFileOperation(event, FILE_OPERATIONS[3]);
}

void CTevFsMonitor::HandleFileOperation(const FsOpEvent& event, const FileOperation& operation) {
    const bool bClass = event.path_class == PathClassAutoRun ||
                        (operation.bClassTwo && event.path_class == PathClassTwo);
    if (event.operation != operation.pszOperation || !bClass) {
        return;
    }
    // The acting program is hashed, not the touched file, and before the cache is asked.
    const std::string strKey = ProgramKey(event.exe_path);
    if (strKey.empty()) {
        LogPrint(LOG_FAIL, SOURCE, operation.pszFunction, __LINE__,
                 "[CTevFsMonitor] calc exepath md5 faid! [%s][%s]", event.exe_path.c_str(),
                 event.operation.c_str());
        return;
    }
    if (IsInCacho(strKey)) {
        LogPrint(LOG_SKIP, SOURCE, operation.pszFunction, __LINE__,
                 "[CTevFsMonitor] %s in cacho, skip [%s]", event.path.c_str(),
                 event.operation.c_str());
        return;
    }
    struct stat status = {};
    if (operation.bGapTime && !StatFile(event.path, status)) {
        LogPrint(LOG_FAIL, SOURCE, operation.pszFunction, __LINE__,
                 "[CTevFsMonitor] stat faid [%s]", event.path.c_str());
        return;
    }
    PostQuery([&](Json::Value& jsonEvent) {
        AppendItem(jsonEvent, "hi.event_name", operation.pszEventName);
        AppendItem(jsonEvent, operation.pszPathKey, CUserPathMasker::Masked(event.path));
        AppendItem(jsonEvent, "hi.type", event.path_class == PathClassAutoRun ? "0" : "1");
        if (operation.bGapTime) {
            AppendItem(jsonEvent, "hi.gap_time",
                       FormatEventTime(status.st_mtim.tv_sec, status.st_mtim.tv_nsec));
        }
        if (operation.bNewPath) {
            AppendItem(jsonEvent, "hi.new_file_path", "");
        }
        return CloudQuery{{}, event.path, operation.nPathType, "fdid", "1", "cloudfd", ""};
    });
}

void CTevFsMonitor::ProcessPipeHandler(const FsOpEvent& event) {
    if (event.operation != "create") {
        return;
    }
    struct stat status = {};
    if (!StatFile(event.path, status)) {
        LogPrint(LOG_FAIL, SOURCE, "ProcessPipeHandler", __LINE__, "[CTevFsMonitor] stat faid [%s]",
                 event.path.c_str());
        return;
    }
    if (!S_ISFIFO(status.st_mode)) {
        return;
    }
    const std::string strMode = FormatMode(status.st_mode);
    const std::string strKey = ProgramKey(event.exe_path);
    if (strKey.empty()) {
        // The pipe's path, not the program's: this is relied on.
        LogPrint(LOG_FAIL, SOURCE, "ProcessPipeHandler", __LINE__,
                 "[CTevFsMonitor] calc md5 faid! [%s]", event.path.c_str());
        return;
    }
    bool bSkip = false;
    if (IsInCacho(strKey) && CompareCachoLevel(strKey, PIPE_SKIP_LEVEL, ">=", bSkip) && bSkip) {
        return;
    }
    // About the program, under its key, unlike the file handlers' queries: this is relied on.
    PostQuery([&](Json::Value& jsonEvent) {
        AppendItem(jsonEvent, "hi.event_name", "ProcessPipe");
        AppendItem(jsonEvent, "hi.type", 2);  // a number, unlike everywhere else
        AppendItem(jsonEvent, "hi.operation", "create");
        AppendItem(jsonEvent, "hi.filepath", CUserPathMasker::Masked(event.path));
        AppendItem(jsonEvent, "hi.mode", strMode);
        return CloudQuery{{}, event.exe_path, 0, "adid", "1000", "cloudfs", strKey};
    });
}

void CTevFsMonitor::AddAutoRunsHandler(const FsOpEvent& event) {
    if (event.operation != "create" || !IsAutoRunUnitPath(event.path)) {
        return;
    }
    const std::string strKey = ProgramKey(event.exe_path);
    if (strKey.empty()) {
        LogPrint(LOG_FAIL, SOURCE, "AddAutoRunsHandler", __LINE__,
                 "[AddAutoRunsHandler] calc md5 faid! [%s]", event.exe_path.c_str());
        return;
    }
    if (IsInCacho(strKey)) {
        LogPrint(LOG_SKIP, SOURCE, "AddAutoRunsHandler", __LINE__,
                 "[AddAutoRunsHandler] %s in cacho, skip [%s]", event.path.c_str(),
                 event.operation.c_str());
        return;
    }
    PostQuery([&](Json::Value& jsonEvent) {
        AppendItem(jsonEvent, "hi.event_name", "AddAutoRuns");
        AppendItem(jsonEvent, "hi.filepath", CUserPathMasker::Masked(event.path));
        return CloudQuery{{}, event.exe_path, 0, "fdid", "11", "cloudfs", strKey};
    });
}
