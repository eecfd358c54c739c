// The whole channel road against the sum of its parts. The road: a message comes in at the
// receiver, is stored, taken out again by a drain, analysed with real digests and lookups, its
// queries posted, and the message deleted. The parts: the same message parsed, inserted, fetched,
// analysed and removed by direct calls. What is left is what the road itself costs: dispatch, gate,
// log calls that write nothing, the look at an empty queue that ends a drain.
#include "tevmon/core/CTevChennalMgr.h"

#include <list>
#include <string>

#include "bench/support/Ratios.h"
#include "bench/tevmon/core/TakingRouter.h"
#include "framework/abi/Guid.h"
#include "framework/abi/MsgTypes.h"
#include "public/pluginhelper/CMsgRouterHolder.h"
#include "public/pluginhelper/JsonReaders.h"
#include "tests/support/FakeUsers.h"
#include "tests/support/TestDir.h"
#include "tevmon/core/CTevChennalDB.h"
#include "tevmon/core/CTevMonIpcRecever.h"
#include "tevmon/core/CTevPsMonitor.h"

namespace {

class Channel : public CTevChennalMgr {
public:
    Channel() { SetRunning(true); }
    ~Channel() override = default;

    using CTevChennalMgr::Drain;
};

class Road {
public:
    Road()
        : m_strProgram(m_dir.WriteFile("usr/bin/tool", std::string(16384, 'p'), 0755)),
          m_users({{"alice", "/home/"}}) {
        CMsgRouterHolder::Instance()->SetRouter(&m_router);
    }
    ~Road() { CMsgRouterHolder::Instance()->SetRouter(nullptr); }

    // The first of the elements asks for the analysis.
    std::string Message(int nElements) const {
        std::string strMessage = R"({"msg_type":"hips","param":[)";
        for (int i = 0; i < nElements; ++i) {
            strMessage += i == 0 ? R"({"grup":"cloudquery","context":"cloudad",)" : ",{";
            strMessage += R"("path":")" + m_strProgram + R"(","cmd":"tool -v input.txt","pid":)" +
                          std::to_string(4000 + i) + "}";
        }
        return strMessage + "]}";
    }
    void Whole(const std::string& strMessage) {
        (void)m_receiver.ReceiveCallback(&m_sender, MSG_TYPE_HIPS_EVENT, strMessage.data(),
                                         static_cast<uint32_t>(strMessage.size()), nullptr, 0);
        m_channel.Drain();
    }
    static void Parts(const std::string& strMessage) {
        Json::Value jsonRoot;
        benchmark::DoNotOptimize(ParseJsonText(strMessage, jsonRoot));
        CTevChennalDB* pStore = CTevChennalDB::Instance();
        benchmark::DoNotOptimize(pStore->Insert({0, 1700000000, strMessage, MID_PROCESS}));
        std::list<ChennalRecord> records;
        benchmark::DoNotOptimize(pStore->Fetch(records, 1));
        benchmark::DoNotOptimize(CTevPsMonitor::Instance()->Run("", records.front().detail));
        benchmark::DoNotOptimize(pStore->Remove(records.front().id));
        benchmark::DoNotOptimize(pStore->Fetch(records, 1));
    }
    int64_t Posts() const { return m_router.nPosts; }

private:
    TestDir m_dir;
    std::string m_strProgram;
    FakeUsers m_users;
    TakingRouter m_router;
    Guid m_sender = {};
    CTevMonIpcRecever m_receiver;
    Channel m_channel;
};

Road& TheRoad() {
    static Road s_road;
    return s_road;
}

Comparison::Side Whole(int nElements) {
    return [=](benchmark::State& state) {
        const std::string strMessage = TheRoad().Message(nElements);
        const int64_t nBefore = TheRoad().Posts();
        for (auto _ : state) {
            TheRoad().Whole(strMessage);
        }
        if (TheRoad().Posts() - nBefore != nElements * static_cast<int64_t>(state.iterations())) {
            state.SkipWithError("not every launch was asked about");
        }
    };
}

Comparison::Side Parts(int nElements) {
    return [=](benchmark::State& state) {
        const std::string strMessage = TheRoad().Message(nElements);
        for (auto _ : state) {
            Road::Parts(strMessage);
        }
    };
}

const bool REGISTERED =
    Compare({"whole channel road, 1 launch : the sum of its parts", 1.05, Whole(1), Parts(1)}) &&
    Compare({"whole channel road, per launch of 10 : the sum of its parts", 1.05, Whole(10),
             Parts(10), 10});

}  // namespace
