// A host's event message goes through dispatch, queue and analysis; the queue is empty afterwards.
#include <cstddef>
#include <cstdint>

#include "fuzz/Place.h"
#include "tevmon/core/CTevChennalMgr.h"
#include "tevmon/core/CTevMonIpcRecever.h"

namespace {

class Channel : public CTevChennalMgr {
public:
    Channel() { SetRunning(true); }
    ~Channel() override = default;
    using CTevChennalMgr::Drain;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize) {
    (void)Place::Instance();
    static CTevMonIpcRecever recever;
    static Channel channel;
    const Guid sender = {};
    (void)recever.ReceiveCallback(&sender, 20002, pData, static_cast<uint32_t>(nSize), nullptr, 0);
    channel.Drain();
    Require(CTevChennalDB::Instance()->Count() == 0);
    return 0;
}
