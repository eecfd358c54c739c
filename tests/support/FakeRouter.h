// A host router that records its calls and delivers what the test hands it.
#ifndef TESTS_SUPPORT_FAKEROUTER_H
#define TESTS_SUPPORT_FAKEROUTER_H

#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "framework/abi/IMsgRouter.h"

struct SentMessage {
    Guid target;
    int64_t nMsgType;
    std::string strData;
};

class FakeRouter : public IMsgRouter {
public:
    uint32_t nPostResult = 0;  // what Post answers
    uint32_t nSendResult = 0;  // what SendWithCompletion answers

    // Calls other than Post, Reply and SendWithCompletion, in order, as texts: "identity <guid
    // bytes as hex>", "close", "register <type> <reserved>", "unregister <type>".
    std::vector<std::string> Calls() const;
    std::vector<SentMessage> Posts() const;
    std::vector<SentMessage> Replies() const;  // target is zero
    std::vector<SentMessage> Sends() const;
    // Waits until nCount messages were posted; false when it hangs.
    bool WaitForPosts(size_t nCount);
    // Calls the receiver registered for the type; false when there is none.
    bool Deliver(int64_t nMsgType, const std::string& strBody, void* pReplyHandle = nullptr);
    // The last SendWithCompletion's other arguments.
    IMRSendComplete* pLastComplete = nullptr;
    int64_t nLastReserved = -1;
    uint32_t nLastOut = 1;  // the out value as it was when the call came
    int64_t nLastTimeout = -1;
    void* pLastReplyHandle = nullptr;  // of the last Reply

    uint32_t SetLocalIdentity(const Guid* pIdentity) override;
    void Close() override;
    uint32_t Post(const Guid* pTarget, int64_t nMsgType, const void* pData,
                  uint32_t nLength) override;
    int64_t Reserved5() override;
    int64_t Reserved6() override;
    int64_t Reserved7() override;
    int64_t Reserved8() override;
    uint32_t RegisterReceiver(int64_t nMsgType, IMRReceiveComplete* pReceiver,
                              int64_t nReserved) override;
    uint32_t UnregisterReceiver(int64_t nMsgType) override;
    uint32_t Reply(int64_t nReserved, int64_t nMsgType, const void* pData, uint32_t nLength,
                   void* pReplyHandle) override;
    uint32_t SendWithCompletion(const Guid* pTarget, int64_t nMsgType, const void* pData,
                                uint32_t nLength, IMRSendComplete* pComplete, int64_t nReserved,
                                uint32_t* pOut, int64_t nTimeout) override;

private:
    void Called(const std::string& strCall);
    int64_t Reserved(int nSlot);  // fails the test: a module never calls these

    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::map<int64_t, IMRReceiveComplete*> m_receivers;
    std::vector<std::string> m_calls;
    std::vector<SentMessage> m_posts;
    std::vector<SentMessage> m_replies;
    std::vector<SentMessage> m_sends;
};

#endif
