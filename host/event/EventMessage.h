// Messages of behaviour events as the module takes them: which texts are usable, and how a batch
// of process creations or of file operations is written.
//
// Threads: any; no state. Errors: none but std::bad_alloc.
#ifndef HOST_EVENT_EVENTMESSAGE_H
#define HOST_EVENT_EVENTMESSAGE_H

#include <cstdint>
#include <string>
#include <vector>

#include "host/event/FileOperation.h"

namespace event_message {

// Of a launch: which version of its file was started. The module does not read it; it comes back
// with the message, also after a restart.
constexpr const char* MEMBER_VERSION = "version";

// True when the module would queue strBody: a JSON object whose "param" array has an element of
// group "cloudquery" with context "cloudad" or "cloudfd". Each such element has the module queue
// the whole message once: nCopies is their number, nEvents that of all elements times nCopies.
// Otherwise, or when so many copies are beyond 512 MiB, strReason says why and both are 0.
bool IsUsable(const std::string& strBody, uint64_t& nCopies, uint64_t& nEvents,
              std::string& strReason);

// One message that reports the start of every program in paths. Only its first element names the
// group and the context: each element that does has the whole message queued once. The paths
// stand in it byte for byte, also where they are not UTF-8. "" for no paths.
std::string ProcessCreations(const std::vector<std::string>& paths);

struct Creation {
    std::string strPath;
    std::string strCommand;
    uint32_t nPid = 0;
    std::string strVersion = {};  // of the program's file, as file_version::Text; "" when not known
};
// Likewise, with the command line and the number of each process.
std::string CreationsOf(const std::vector<Creation>& creations);

// "create", "write", ...
const char* OperationWord(FileAct eAct);

// One message of file operations, likewise. A program that no path leads to stands in it as "".
std::string OperationsOf(const std::vector<FileOperation>& operations);

}  // namespace event_message

#endif
