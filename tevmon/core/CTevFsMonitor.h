// Analyses batches of file operations: changes in autostart locations, new named pipes, and new
// systemd units and desktop autostart entries. For each that matters, one cloud query is posted
// about the program that did it, unless that program has a living verdict.
//
// Threads: [channel], one message at a time; no state.
// Errors: nothing throws out of ParseFsOpMsg. What fails for one operation is logged and skips what
//   it concerns only.
// Ownership: one object per process, made by Instance().
#ifndef TEVMON_CORE_CTEVFSMONITOR_H
#define TEVMON_CORE_CTEVFSMONITOR_H

#include <json/value.h>

#include <cstdint>
#include <string>

#include "framework/base/SingletonAbstract.h"
#include "tevmon/core/FsOpEvent.h"

class CTevFsMonitor : public utils::SingletonAbstract<CTevFsMonitor> {
public:
    // strContent is the message as the host sent it; each element of its "param" with a "path" is
    // an operation. A "create" goes to three handlers, in the order in which they stand below.
    // False only when the text does not parse or has no "param".
    bool ParseFsOpMsg(const std::string& strSender, const std::string& strContent);

    // True while the key has a verdict that has not expired.
    bool IsInCacho(const std::string& strKey);

    // Compares nValue (on the left) with the level of the key's living verdict: strOp is ">", ">=",
    // "<", "<=" or "==", any other leaves bResult alone and answers true all the same. False, with
    // bResult untouched, when there is no living verdict.
    bool CompareCachoLevel(const std::string& strKey, int32_t nValue, const std::string& strOp,
                           bool& bResult);

    // Each does nothing for an event of another operation than its own.
    void FileCreateHandler(const FsOpEvent& event);
    void ProcessPipeHandler(const FsOpEvent& event);
    void AddAutoRunsHandler(const FsOpEvent& event);  // whatever event.path_class
    void FileDeleteHandler(const FsOpEvent& event);
    void FileRenameHandler(const FsOpEvent& event);
    void FileModifyHandler(const FsOpEvent& event);

protected:
    friend class utils::SingletonAbstract<CTevFsMonitor>;
    CTevFsMonitor() = default;
    ~CTevFsMonitor() = default;

private:
    struct FileOperation;  // how one of the four file handlers differs from the others
    static const FileOperation FILE_OPERATIONS[];  // create, delete, modify, rename

    void HandleElement(const Json::Value& jsonElement);
    void Fenced(void (CTevFsMonitor::*pfnHandler)(const FsOpEvent&), const FsOpEvent& event);
    void HandleFileOperation(const FsOpEvent& event, const FileOperation& operation);
};

#endif
