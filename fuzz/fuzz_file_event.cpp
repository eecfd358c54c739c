// File events decoded from any bytes lead into these bytes and nowhere else.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "fuzz/Require.h"
#include "host/kernel/file/FileEvent.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize) {
    const auto* const pBegin = reinterpret_cast<const char*>(pData);
    FileEventReader reader(pBegin, nSize);
    FileEvent event;
    size_t nEvents = 0;
    while (reader.Next(event)) {
        ++nEvents;
        for (const FileSpot* pSpot : {&event.spot, &event.from, &event.to}) {
            Require(pSpot->strName.find('/') == std::string_view::npos);
            for (const std::string_view strPart : {pSpot->strDirectory, pSpot->strName}) {
                // "." stands for no name and lies elsewhere.
                Require(strPart.empty() || strPart == "." ||
                        (strPart.data() >= pBegin &&
                         strPart.data() + strPart.size() <= pBegin + nSize));
            }
        }
        (void)file_handle_key::Inode(event.strTarget);
        Require(file_handle_key::FileSystem(event.strTarget).size() <= 8);
    }
    Require(nEvents + reader.Broken() <= nSize);
    return 0;
}
