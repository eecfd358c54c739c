// Holds the host's message router for the whole process; every send goes through here.
//
// Threads: any. The pointer is written by zkp_setopt before the receiver is registered, and stays
//   after zkp_uninit; each call loads it once.
// Errors: a call with a result answers ERROR_NO_ROUTER while no router is held and the router's
//   result otherwise; Close and UnregisterReceiver then do nothing.
// Ownership: the router stays the host's.
#ifndef PUBLIC_PLUGINHELPER_CMSGROUTERHOLDER_H
#define PUBLIC_PLUGINHELPER_CMSGROUTERHOLDER_H

#include <atomic>
#include <cstdint>

#include "framework/abi/IMsgRouter.h"
#include "framework/base/SingletonAbstract.h"

class CMsgRouterHolder : public utils::SingletonAbstract<CMsgRouterHolder> {
public:
    void SetRouter(IMsgRouter* pRouter);
    IMsgRouter* GetRouter() const;  // null while none is held

    uint32_t SetLocalIdentity(const Guid& identity);
    void Close();
    uint32_t Post(const Guid& target, int64_t nMsgType, const void* pData, uint32_t nLength);
    uint32_t RegisterReceiver(int64_t nMsgType, IMRReceiveComplete* pReceiver);
    void UnregisterReceiver(int64_t nMsgType);
    uint32_t Reply(int64_t nMsgType, const void* pData, uint32_t nLength, void* pReplyHandle);

private:
    friend class utils::SingletonAbstract<CMsgRouterHolder>;
    CMsgRouterHolder() = default;
    ~CMsgRouterHolder() = default;

    std::atomic<IMsgRouter*> m_pRouter{nullptr};
};

#endif
