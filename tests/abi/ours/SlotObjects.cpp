#include "tests/abi/ours/SlotObjects.h"

#include <cstdint>
#include <cstring>
#include <string>

#include "framework/abi/IMRReceiveComplete.h"
#include "framework/abi/IMRSendComplete.h"
#include "framework/abi/IMsgRouter.h"
#include "framework/abi/IPluginProxy.h"
#include "public/pluginhelper/CCentreSession.h"
#include "public/pluginhelper/CTaskTimer.h"
#include "tevmon/core/CTevChennalMgr.h"
#include "tevmon/core/CTevCloudCachoMgr.h"
#include "tevmon/core/CTevMonIpcMsgHandler.h"
#include "tevmon/core/CTevMonPlugin.h"
#include "tevmon/core/CTevMonTimer.h"

namespace {

const char* s_pszLast = "";

template <class Result>
Result Note(const char* pszOperation, Result result) {
    s_pszLast = pszOperation;
    return result;
}

void Note(const char* pszOperation) {
    s_pszLast = pszOperation;
}

class BarePluginProxy : public IPluginProxy {
public:
    ~BarePluginProxy() override { Note("~IPluginProxy"); }
    int32_t zkp_init(void*) override { return Note("zkp_init", 2); }
    void zkp_uninit() override { Note("zkp_uninit"); }
    void zkp_setopt(IMsgRouter*) override { Note("zkp_setopt"); }
    int32_t zkp_getstatus() override { return Note("zkp_getstatus", 5); }
};

class PluginProxy : public BarePluginProxy {
public:
    int32_t zkp_ext6(void*) override { return Note("zkp_ext6", 6); }
    int32_t zkp_ext7(void*) override { return Note("zkp_ext7", 7); }
    int32_t zkp_start() override { return Note("zkp_start", 8); }
    int32_t zkp_stop() override { return Note("zkp_stop", 9); }
};

class MsgRouter : public IMsgRouter {
public:
    ~MsgRouter() override { Note("~IMsgRouter"); }
    uint32_t SetLocalIdentity(const Guid*) override { return Note("SetLocalIdentity", 2U); }
    void Close() override { Note("Close"); }
    uint32_t Post(const Guid*, int64_t, const void*, uint32_t) override { return Note("Post", 4U); }
    int64_t Reserved5() override { return Note("Reserved5", 5); }
    int64_t Reserved6() override { return Note("Reserved6", 6); }
    int64_t Reserved7() override { return Note("Reserved7", 7); }
    int64_t Reserved8() override { return Note("Reserved8", 8); }
    uint32_t RegisterReceiver(int64_t, IMRReceiveComplete*, int64_t) override {
        return Note("RegisterReceiver", 9U);
    }
    uint32_t UnregisterReceiver(int64_t) override { return Note("UnregisterReceiver", 10U); }
    uint32_t Reply(int64_t, int64_t, const void*, uint32_t, void*) override {
        return Note("Reply", 11U);
    }
    uint32_t SendWithCompletion(const Guid*, int64_t, const void*, uint32_t, IMRSendComplete*,
                                int64_t, uint32_t*, int64_t) override {
        return Note("SendWithCompletion", 12U);
    }
};

class Receiver : public IMRReceiveComplete {
public:
    ~Receiver() override { Note("~IMRReceiveComplete"); }
    int64_t ReceiveCallback(const Guid*, int64_t, const void*, uint32_t, void*, int64_t) override {
        return Note("ReceiveCallback", 2);
    }
};

class SendCompletion : public IMRSendComplete {
public:
    ~SendCompletion() override { Note("~IMRSendComplete"); }
    int64_t SendComplete(uint32_t, const void*, const void*, uint32_t, void*, int64_t) override {
        return Note("SendComplete", 2);
    }
};

class MsgFunc : public IMsgFunc {
public:
    ~MsgFunc() override { Note("~IMsgFunc"); }
    int32_t Run(const std::string&, const std::string&, std::string&, int32_t*) override {
        return Note("Run", 2);
    }
    int64_t GetMsgType() override { return Note("GetMsgType", int64_t{3} << 32); }
};

class TimerTask : public ITimerTask {
public:
    ~TimerTask() override { Note("~ITimerTask"); }
    int Reserved() override { return Note("Reserved", 2); }
    bool Init(int) override { return Note("Init", true); }
    void Uninit() override { Note("Uninit"); }
    bool IsDue(int) override { return Note("IsDue", true); }
    void Execute() override { Note("Execute"); }
    int SetParam(int nA, int nB) override { return Note("SetParam", nA * 10 + nB); }
};

class TaskTimer : public CTaskTimer {
public:
    ~TaskTimer() override { Note("~CTaskTimer"); }
    bool start(Priority) override { return Note("start", true); }
    bool stop() override { return Note("stop", true); }
    void pause() override { Note("pause"); }
    void recovery() override { Note("recovery"); }
    bool doPauseOrQuit() override { return Note("doPauseOrQuit", true); }
    void pausedWaitCallback(void*) override { Note("pausedWaitCallback"); }

protected:
    void run() override { Note("run"); }
    const char* GetTimerName() const override { return Note("GetTimerName", "own name"); }
    int GetInterval() const override { return Note("GetInterval", 10); }
};

class Channel : public CTevChennalMgr {
public:
    Channel() = default;

protected:
    void run() override { Note("run"); }
    bool DisathMsg(const ChennalRecord&) override { return Note("DisathMsg", true); }
};

class Cache : public CTevCloudCachoMgr {
public:
    Cache() = default;

protected:
    void run() override { Note("run"); }
};

}  // namespace

namespace slots {

const char* LastOperation() {
    return s_pszLast;
}

// Through the interface's pointer, as a host holds it.
void* NewPluginProxy() {
    return static_cast<IPluginProxy*>(new PluginProxy);
}

void* NewBarePluginProxy() {
    return static_cast<IPluginProxy*>(new BarePluginProxy);
}

void* NewMsgRouter() {
    return static_cast<IMsgRouter*>(new MsgRouter);
}

void* NewReceiver() {
    return static_cast<IMRReceiveComplete*>(new Receiver);
}

void* NewSendComplete() {
    return static_cast<IMRSendComplete*>(new SendCompletion);
}

void* NewMsgFunc() {
    return static_cast<IMsgFunc*>(new MsgFunc);
}

void* NewTimerTask() {
    return static_cast<ITimerTask*>(new TimerTask);
}

void* NewTaskTimer() {
    return static_cast<CThread*>(new TaskTimer);
}

void* NewChannel() {
    return static_cast<CThread*>(new Channel);
}

void* NewCache() {
    return static_cast<CThread*>(new Cache);
}

void* Plugin() {
    return GetPluginInstance();
}

void* NewModuleTimer() {
    return static_cast<CThread*>(new CTevMonTimer);
}

void* NewEventHandler() {
    return static_cast<IMsgFunc*>(new CHipsMsgHandler);
}

void* NewCloudHandler() {
    return static_cast<IMsgFunc*>(new CCloudQueryRetHandler);
}

void* NewCompletion() {
    return static_cast<IMRSendComplete*>(new CLogCacheAsynCallback);
}

unsigned StatusBehindVtable(const void* pPlugin) {
    unsigned nStatus = 0;
    memcpy(&nStatus, static_cast<const char*>(pPlugin) + sizeof(void*), sizeof(nStatus));
    return nStatus;
}

}  // namespace slots
