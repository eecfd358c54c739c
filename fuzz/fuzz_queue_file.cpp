// Any bytes as the queue's database: opened, drained, written and emptied without harm.
#include <cstddef>
#include <cstdint>
#include <list>

#include "fuzz/Place.h"
#include "tevmon/core/CTevChennalMgr.h"

namespace {

class Queue : public CTevChennalDB {
public:
    Queue() = default;
    ~Queue() = default;
};

// The drain's own steps; its loop knows one store per process only.
class Channel : public CTevChennalMgr {
public:
    Channel() = default;
    ~Channel() override = default;
    using CTevChennalMgr::DisathMsg;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize) {
    (void)Place::Instance();
    Place::WriteDatabase("tevchennaldb.db", pData, nSize);
    Queue queue;
    static Channel channel;
    std::list<ChennalRecord> recordList;
    for (int i = 0; i < 5 && queue.Fetch(recordList, 1) == 0 && !recordList.empty(); ++i) {
        (void)channel.DisathMsg(recordList.front());
        (void)queue.Remove(recordList.front().id);
    }
    ChennalRecord record;
    record.detail = "later";
    (void)queue.Insert(record);
    (void)queue.FetchAndRemove(recordList, 10);
    (void)queue.Clear();
    Require(queue.Count() >= 0);
    return 0;
}
