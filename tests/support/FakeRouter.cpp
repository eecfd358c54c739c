#include "tests/support/FakeRouter.h"

#include <gtest/gtest.h>

#include <chrono>

#include "framework/base/CStr.h"
#include "tests/support/Event.h"

namespace {

std::string Hex(const Guid& guid) {
    const auto* pBytes = reinterpret_cast<const unsigned char*>(&guid);
    std::string strHex;
    for (size_t i = 0; i < sizeof(guid); ++i) {
        strHex += CStr::stdformat("%02x", pBytes[i]);
    }
    return strHex;
}

SentMessage Message(const Guid* pTarget, int64_t nMsgType, const void* pData, uint32_t nLength) {
    return {pTarget != nullptr ? *pTarget : Guid{}, nMsgType,
            std::string(static_cast<const char*>(pData), nLength)};
}

}  // namespace

std::vector<std::string> FakeRouter::Calls() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_calls;
}

std::vector<SentMessage> FakeRouter::Posts() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_posts;
}

std::vector<SentMessage> FakeRouter::Replies() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_replies;
}

std::vector<SentMessage> FakeRouter::Sends() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_sends;
}

bool FakeRouter::WaitForPosts(size_t nCount) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, HANGS_AFTER, [&] { return m_posts.size() >= nCount; });
}

bool FakeRouter::Deliver(int64_t nMsgType, const std::string& strBody, void* pReplyHandle) {
    IMRReceiveComplete* pReceiver = nullptr;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const auto it = m_receivers.find(nMsgType);
        if (it == m_receivers.end()) {
            return false;
        }
        pReceiver = it->second;
    }
    const Guid sender = {0x12345678, 0x9abc, 0xdef0, {1, 2, 3, 4, 5, 6, 7, 8}};
    (void)pReceiver->ReceiveCallback(&sender, nMsgType, strBody.data(),
                                     static_cast<uint32_t>(strBody.size()), pReplyHandle, 0);
    return true;
}

uint32_t FakeRouter::SetLocalIdentity(const Guid* pIdentity) {
    Called("identity " + Hex(*pIdentity));
    return 0;
}

void FakeRouter::Close() {
    Called("close");
}

uint32_t FakeRouter::Post(const Guid* pTarget, int64_t nMsgType, const void* pData,
                          uint32_t nLength) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_posts.push_back(Message(pTarget, nMsgType, pData, nLength));
    m_changed.notify_all();
    return nPostResult;
}

int64_t FakeRouter::Reserved5() {
    return Reserved(5);
}
int64_t FakeRouter::Reserved6() {
    return Reserved(6);
}
int64_t FakeRouter::Reserved7() {
    return Reserved(7);
}
int64_t FakeRouter::Reserved8() {
    return Reserved(8);
}

uint32_t FakeRouter::RegisterReceiver(int64_t nMsgType, IMRReceiveComplete* pReceiver,
                                      int64_t nReserved) {
    Called(CStr::stdformat("register %lld %lld", static_cast<long long>(nMsgType),
                           static_cast<long long>(nReserved)));
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_receivers[nMsgType] = pReceiver;
    return 0;
}

uint32_t FakeRouter::UnregisterReceiver(int64_t nMsgType) {
    Called(CStr::stdformat("unregister %lld", static_cast<long long>(nMsgType)));
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_receivers.erase(nMsgType);
    return 0;
}

uint32_t FakeRouter::Reply(int64_t nReserved, int64_t nMsgType, const void* pData, uint32_t nLength,
                           void* pReplyHandle) {
    EXPECT_EQ(0, nReserved);
    EXPECT_NE(nullptr, pReplyHandle);
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_replies.push_back(Message(nullptr, nMsgType, pData, nLength));
    pLastReplyHandle = pReplyHandle;
    return 0;
}

uint32_t FakeRouter::SendWithCompletion(const Guid* pTarget, int64_t nMsgType, const void* pData,
                                        uint32_t nLength, IMRSendComplete* pComplete,
                                        int64_t nReserved, uint32_t* pOut, int64_t nTimeout) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_sends.push_back(Message(pTarget, nMsgType, pData, nLength));
    pLastComplete = pComplete;
    nLastReserved = nReserved;
    nLastOut = *pOut;
    nLastTimeout = nTimeout;
    return nSendResult;
}

void FakeRouter::Called(const std::string& strCall) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_calls.push_back(strCall);
}

int64_t FakeRouter::Reserved(int nSlot) {
    ADD_FAILURE() << "reserved router slot " << nSlot << " was called";
    return 0;
}
