// The handlers of the two host messages that the module takes: behaviour events, which are queued,
// and cloud verdicts, which are recorded.
//
// Threads: [transport, several at once]; no state.
// Errors: a message that is malformed or not ours is dropped silently; Run always returns 0 and
//   leaves the status at 1, so that nothing is ever replied.
#ifndef TEVMON_CORE_CTEVMONIPCMSGHANDLER_H
#define TEVMON_CORE_CTEVMONIPCMSGHANDLER_H

#include <cstdint>
#include <string>

#include "tevmon/core/IMsgFunc.h"

// Queues the whole message once for every element of "param" whose "grup" is "cloudquery" and whose
// "context" names an analyser.
class CHipsMsgHandler : public IMsgFunc {
public:
    int32_t Run(const std::string& strSender, const std::string& strBody, std::string& strReply,
                int32_t* pStatus) override;
    int64_t GetMsgType() override;
};

// Records the verdict of a "cloudqr" message: "context" is the key, "result" the level as text (40
// when absent), "func" the analyser that asked.
class CCloudQueryRetHandler : public IMsgFunc {
public:
    int32_t Run(const std::string& strSender, const std::string& strBody, std::string& strReply,
                int32_t* pStatus) override;
    int64_t GetMsgType() override;
};

// "cloudad" 5, "cloudfd" 6, anything else 0.
int32_t FuncToMid(const std::string& strFunc);

#endif
