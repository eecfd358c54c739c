// A record for the centre has its payload up to the first NUL, its length, and names that end,
// whatever the ids are.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "fuzz/Place.h"
#include "public/pluginhelper/CCentreSession.h"
#include "public/pluginhelper/CMsgRouterHolder.h"
#include "tests/support/SilentRouter.h"

namespace {

constexpr size_t NAMES = 16;
constexpr size_t NAME_SIZE = 64;
constexpr size_t LENGTH = 144;
constexpr size_t PAYLOAD = 148;

class CheckingRouter : public SilentRouter {
public:
    std::string strPayload;
    long nSent = 0;

    uint32_t SendWithCompletion(const Guid*, int64_t, const void* pData, uint32_t nLength,
                                IMRSendComplete* pComplete, int64_t, uint32_t*, int64_t) override {
        const std::string strRecord(static_cast<const char*>(pData), nLength);
        uint32_t nPayload = 0;
        Require(strRecord.size() == CCentreSession::RECORD_OVERHEAD + strPayload.size());
        std::memcpy(&nPayload, strRecord.data() + LENGTH, sizeof(nPayload));
        Require(nPayload == strPayload.size());
        Require(strRecord.substr(PAYLOAD) == strPayload + '\0');
        Require(strRecord[NAMES + NAME_SIZE - 1] == '\0' && strRecord[LENGTH - 1] == '\0');
        if (pComplete != nullptr) {
            (void)pComplete->SendComplete(0, nullptr, nullptr, 0, nullptr, 0);
        }
        ++nSent;
        return strPayload.size() % 2;  // the router refuses some
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize) {
    (void)Place::Instance();
    static CheckingRouter router;
    static CCentreSession session;
    CMsgRouterHolder::Instance()->SetRouter(&router);
    const std::string strData(reinterpret_cast<const char*>(pData), nSize);
    const size_t nCut = strData.find('\n');
    const std::string strId = strData.substr(0, nCut);
    const std::string strPayload = nCut == std::string::npos ? "" : strData.substr(nCut + 1);
    router.strPayload = strPayload.c_str();
    const long nBefore = router.nSent;
    const bool bSent = session.sendhub(strPayload, strId, 1, 0, 0);
    Require(!bSent || (router.nSent == nBefore + 1 && !router.strPayload.empty()));
    Require(session.sendhub1(strPayload, strId, 1, 0) == bSent);
    Require(session.sendhub2(strPayload, strId, 1, 1) == bSent);
    Require(!session.sendhub(strPayload, strId, 1, 0, 2));
    return 0;
}
