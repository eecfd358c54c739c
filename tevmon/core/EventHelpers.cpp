#include "tevmon/core/EventHelpers.h"

#include <charconv>
#include <utility>

#include "framework/base/CStr.h"
#include "framework/base/file_utils.h"
#include "framework/digest/FileHash.h"
#include "utils/time_utils.h"

namespace {

constexpr char TIME_FORMAT[] = "%Y-%m-%d %H:%M:%S";
constexpr char BLANKS[] = " \n\r\t";

// Only these exact names: "sh", "python3.11" and their like are no interpreters here, on purpose.
struct Interpreter {
    const char* pszName;
    int32_t nType;
    const char* pszSuffix;
};

constexpr Interpreter INTERPRETERS[] = {
    {"bash", ScriptShell, "sh"},     {"dash", ScriptShell, "sh"},
    {"python", ScriptPython, "py"},  {"python2", ScriptPython, "py"},
    {"python3", ScriptPython, "py"}, {"php", ScriptPhp, "php"},
};

}  // namespace

int32_t DetectScriptType(const std::string& strPath, const std::string& strCmd) {
    if (strCmd.empty()) {
        return ScriptNone;
    }
    const std::string strName = file_utils::GetFileName(strPath);
    for (const Interpreter& interpreter : INTERPRETERS) {
        if (strName == interpreter.pszName) {
            return CommandRunsScript(strCmd, interpreter.pszSuffix) ? interpreter.nType
                                                                    : ScriptNone;
        }
    }
    return ScriptNone;
}

bool CommandRunsScript(const std::string& strCmd, const std::string& strSuffix) {
    std::string strTrimmed = strCmd;
    for (const std::string& strWord : CStr::split2(Trim(strTrimmed), ' ')) {
        if (file_utils::IsFile(strWord, FOLLOW_LINK_YES)) {
            const std::string strWordSuffix = file_utils::GetFileSuffix(strWord);
            if (!strWordSuffix.empty() && strWordSuffix == strSuffix) {
                return true;
            }
        }
    }
    return false;
}

std::string FormatEventTime(int64_t tmSeconds, int64_t nNanoseconds) {
    const std::string strTime =
        time_utils::FormatTimeStr(tmSeconds, TIME_FORMAT, time_utils::ZONE_LOCAL);
    return strTime.empty() ? "" : strTime + "." + std::to_string(nNanoseconds);
}

std::string& Trim(std::string& strText) {
    strText.erase(0, strText.find_first_not_of(BLANKS));
    strText.erase(strText.find_last_not_of(BLANKS) + 1);
    return strText;
}

bool StatFile(const std::string& strPath, struct stat& status) {
    return strPath.find('\0') == std::string::npos && stat(strPath.c_str(), &status) == 0;
}

std::string FormatMode(mode_t nMode) {
    char text[16];
    return std::string(text, std::to_chars(text, text + sizeof(text), nMode, 8).ptr);
}

std::string ProgramKey(const std::string& strPath) {
    std::string strMd5;
    std::string strSha1;
    (void)utils::getMD5AndSHA1(strPath, strMd5, strSha1);
    try {
        return strMd5.empty() || strSha1.empty() ? "" : strSha1 + strMd5;
    } catch (...) {  // no memory for it: as for digests that found none
        return {};
    }
}

void AppendItem(Json::Value& jsonEvent, const char* pszKey, Json::Value jsonValue) {
    Json::Value& jsonItem = jsonEvent.append(Json::Value(Json::objectValue));
    // Static texts are pointed to, not copied: each has its item.
    jsonItem[Json::StaticString("key")] = Json::Value(Json::StaticString(pszKey));
    jsonItem[Json::StaticString("value")] = std::move(jsonValue);
}
