// The helpers for texts: what they cut stays within what they were given.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "framework/base/CStr.h"
#include "framework/base/file_utils.h"
#include "fuzz/Place.h"
#include "tevmon/core/CUserPathMasker.h"
#include "tevmon/core/EventHelpers.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize) {
    (void)Place::Instance();
    const std::string strText(reinterpret_cast<const char*>(pData), nSize);
    size_t nWords = 0;
    for (const std::string& strWord : CStr::split2(strText, ' ')) {
        nWords += strWord.size();
        Require(strWord.find(' ') == std::string::npos);
    }
    Require(nWords <= nSize);
    Require(file_utils::GetFileSuffix(strText).size() <= nSize);
    Require(file_utils::GetFileName(strText).size() <= nSize);
    std::string strTrimmed = strText;
    Require(Trim(strTrimmed).size() <= nSize);
    Require(DetectScriptType("/bin/bash", strText) <= ScriptShell);
    (void)CUserPathMasker::Masked(strText);
    Require(CStr::stdformat("%s", strText.c_str()) == strText.c_str());
    int64_t numbers[2] = {};
    std::memcpy(numbers, pData, nSize < sizeof(numbers) ? nSize : sizeof(numbers));
    (void)FormatEventTime(numbers[0], numbers[1]);
    return 0;
}
