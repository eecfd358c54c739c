// A handler of host messages of one type.
//
// Threads: [transport] Run may be called from several threads at once.
// Ownership: CTevMonIpcRecever owns its handlers.
#ifndef TEVMON_CORE_IMSGFUNC_H
#define TEVMON_CORE_IMSGFUNC_H

#include <cstdint>
#include <string>

// Status with which a handler asks for its reply text to be sent back.
constexpr int32_t MSG_STATUS_REPLY = 2;

class IMsgFunc {
public:
    virtual ~IMsgFunc() = default;  // slots 0 and 1

    // Slot 2. One message: strSender is the sender's identity as FormatGuid writes it, strBody the
    // message, any bytes. strReply ("success" on entry) may be changed; it is sent when *pStatus (1
    // on entry) is MSG_STATUS_REPLY on return. The result is not used.
    virtual int32_t Run(const std::string& strSender, const std::string& strBody,
                        std::string& strReply, int32_t* pStatus) = 0;

    // Slot 3. The message type it handles.
    virtual int64_t GetMsgType() = 0;
};

#endif
