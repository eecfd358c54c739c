// A record for the centre is sent with its payload up to the first NUL, whatever the ids are.
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/Place.h"
#include "public/pluginhelper/CCentreSession.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize) {
    (void)Place::Instance();
    static CCentreSession session;
    const std::string strData(reinterpret_cast<const char*>(pData), nSize);
    const size_t nCut = strData.find('\n');
    const std::string strId = strData.substr(0, nCut);
    const std::string strPayload = nCut == std::string::npos ? "" : strData.substr(nCut + 1);
    (void)session.sendhub(strPayload, strId, 1, 0, 0);
    (void)session.sendhub1(strPayload, strId, 1, 0);
    (void)session.sendhub2(strPayload, strId, 1, 0);
    return 0;
}
