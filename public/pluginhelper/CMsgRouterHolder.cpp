#include "public/pluginhelper/CMsgRouterHolder.h"

#include "framework/abi/MsgTypes.h"

void CMsgRouterHolder::SetRouter(IMsgRouter* pRouter) {
    m_pRouter.store(pRouter, std::memory_order_release);
}

IMsgRouter* CMsgRouterHolder::GetRouter() const {
    return m_pRouter.load(std::memory_order_acquire);
}

uint32_t CMsgRouterHolder::SetLocalIdentity(const Guid& identity) {
    IMsgRouter* pRouter = GetRouter();
    return pRouter != nullptr ? pRouter->SetLocalIdentity(&identity) : ERROR_NO_ROUTER;
}

void CMsgRouterHolder::Close() {
    IMsgRouter* pRouter = GetRouter();
    if (pRouter != nullptr) {
        pRouter->Close();
    }
}

uint32_t CMsgRouterHolder::Post(const Guid& target, int64_t nMsgType, const void* pData,
                                uint32_t nLength) {
    IMsgRouter* pRouter = GetRouter();
    return pRouter != nullptr ? pRouter->Post(&target, nMsgType, pData, nLength) : ERROR_NO_ROUTER;
}

uint32_t CMsgRouterHolder::RegisterReceiver(int64_t nMsgType, IMRReceiveComplete* pReceiver) {
    IMsgRouter* pRouter = GetRouter();
    return pRouter != nullptr ? pRouter->RegisterReceiver(nMsgType, pReceiver, 0) : ERROR_NO_ROUTER;
}

void CMsgRouterHolder::UnregisterReceiver(int64_t nMsgType) {
    IMsgRouter* pRouter = GetRouter();
    if (pRouter != nullptr) {
        (void)pRouter->UnregisterReceiver(nMsgType);  // the host's own affair
    }
}

uint32_t CMsgRouterHolder::Reply(int64_t nMsgType, const void* pData, uint32_t nLength,
                                 void* pReplyHandle) {
    IMsgRouter* pRouter = GetRouter();
    return pRouter != nullptr ? pRouter->Reply(0, nMsgType, pData, nLength, pReplyHandle)
                              : ERROR_NO_ROUTER;
}
