#include "host/module/ExpectedQueries.h"

#include <sys/stat.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "framework/base/file_utils.h"
#include "host/base/JsonReader.h"
#include "host/base/ModuleFacts.h"
#include "host/event/EventMessage.h"
#include "host/event/WatchedPaths.h"

namespace expected_queries {

namespace {

struct EventName {
    std::string_view strEvent;
    ExpectedKind eKind;
    std::string_view strOperation;
};

constexpr EventName EVENT_NAMES[] = {
    {module_facts::EVENT_LAUNCH, EXPECTED_LAUNCH, ""},
    {module_facts::EVENT_CREATE, EXPECTED_FILE, module_facts::OPERATION_CREATE},
    {module_facts::EVENT_WRITE, EXPECTED_FILE, module_facts::OPERATION_WRITE},
    {module_facts::EVENT_RENAME, EXPECTED_FILE, module_facts::OPERATION_RENAME},
    {module_facts::EVENT_REMOVE, EXPECTED_FILE, module_facts::OPERATION_REMOVE},
    {module_facts::EVENT_PIPE, EXPECTED_PIPE, ""},
    {module_facts::EVENT_UNIT, EXPECTED_UNIT, ""},
};

bool BeginsWith(const std::string& strText, std::string_view strPrefix) {
    return strText.compare(0, strPrefix.size(), strPrefix) == 0;
}

bool IsPipe(const std::string& strPath) {
    struct stat status = {};
    return strPath.find('\0') == std::string::npos && stat(strPath.c_str(), &status) == 0 &&
           S_ISFIFO(status.st_mode);
}

void AddFile(const Json::Value& jsonElement, MessageQueries& all) {
    ExpectedQuery expected;
    expected.strFile = json_reader::Text(jsonElement, "path");
    expected.strProgram = json_reader::Text(jsonElement, module_facts::MEMBER_PROGRAM);
    const std::string strOperation = json_reader::Text(jsonElement, module_facts::MEMBER_OPERATION);
    const auto add = [&all, &expected](ExpectedKind eKind, const std::string& strWhat) {
        expected.eKind = eKind;
        expected.strOperation = strWhat;
        all.expected.push_back(expected);
    };
    const bool bKnown =
        std::any_of(std::begin(EVENT_NAMES), std::end(EVENT_NAMES), [&](const EventName& name) {
            return name.eKind == EXPECTED_FILE && name.strOperation == strOperation;
        });
    if (bKnown && IsAutostart(expected.strFile)) {
        add(EXPECTED_FILE, strOperation);
    }
    if (strOperation == module_facts::OPERATION_CREATE && IsPipe(expected.strFile)) {
        add(EXPECTED_PIPE, "");
    }
    if (strOperation == module_facts::OPERATION_CREATE && IsUnit(expected.strFile)) {
        add(EXPECTED_UNIT, "");
    }
}

// Whether copy nCopy of the message goes to the analyser of file operations: each element that asks
// has the message queued once, for the analyser that its context names.
bool IsOfFiles(const Json::Value& jsonParam, uint64_t nCopy) {
    for (const Json::Value& jsonElement : jsonParam) {
        const std::string strContext = json_reader::Text(jsonElement, module_facts::MEMBER_CONTEXT);
        const bool bFiles = strContext == module_facts::CONTEXT_FILES;
        const bool bAsks = json_reader::Text(jsonElement, module_facts::MEMBER_GROUP) ==
                               module_facts::GROUP_QUERY &&
                           (bFiles || strContext == module_facts::CONTEXT_LAUNCHES);
        if (bAsks && nCopy-- == 0) {
            return bFiles;
        }
    }
    return false;
}

}  // namespace

MessageQueries Of(const std::string& strBody, uint64_t nCopy) {
    MessageQueries all;
    Json::Value jsonRoot;
    const Json::Value* const pParam =
        json_reader::Parse(strBody, jsonRoot) ? json_reader::Member(jsonRoot, "param") : nullptr;
    if (pParam == nullptr || !pParam->isArray()) {
        return all;
    }
    const bool bFiles = IsOfFiles(*pParam, nCopy);
    for (const Json::Value& jsonElement : *pParam) {
        const size_t nBefore = all.expected.size();
        const size_t nElement = all.nEvents++;
        if (json_reader::Member(jsonElement, "path") != nullptr) {
            if (bFiles) {
                AddFile(jsonElement, all);
            } else {
                all.expected.push_back({EXPECTED_LAUNCH, json_reader::Text(jsonElement, "path"), "",
                                        "", nElement,
                                        file_version::Parse(json_reader::Text(
                                            jsonElement, event_message::MEMBER_VERSION))});
            }
        }
        all.nIgnored += all.expected.size() == nBefore ? 1 : 0;
    }
    return all;
}

bool IsAutostart(const std::string& strPath) {
    const auto& places = WatchedPaths::All();
    return std::any_of(places.begin(), places.end(), [&strPath](const WatchedPaths::Place& place) {
        return place.pszSuffix == nullptr && BeginsWith(strPath, place.pszDirectory);
    });
}

bool IsUnit(const std::string& strPath) {
    const std::string strSuffix = file_utils::GetFileSuffix(strPath);
    const auto& places = WatchedPaths::All();
    return std::any_of(places.begin(), places.end(), [&](const WatchedPaths::Place& place) {
        return place.pszSuffix != nullptr && BeginsWith(strPath, place.pszDirectory) &&
               strSuffix == place.pszSuffix;
    });
}

ExpectedKind KindOfEvent(const std::string& strEvent, std::string& strOperation) {
    for (const EventName& name : EVENT_NAMES) {
        if (name.strEvent == strEvent) {
            strOperation = name.strOperation;
            return name.eKind;
        }
    }
    strOperation.clear();
    return EXPECTED_NONE;
}

std::string EventOf(ExpectedKind eKind, const std::string& strOperation) {
    if (eKind == EXPECTED_LAUNCH) {
        return "launch";
    }
    for (const EventName& name : EVENT_NAMES) {
        if (name.eKind == eKind && (eKind != EXPECTED_FILE || name.strOperation == strOperation)) {
            return std::string(name.strEvent);
        }
    }
    return "";
}

}  // namespace expected_queries
