#include "host/module/ExpectedQueries.h"

#include <sys/stat.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "framework/base/file_utils.h"
#include "host/base/JsonReader.h"
#include "host/base/ModuleFacts.h"
#include "host/event/WatchedPaths.h"

namespace expected_queries {

namespace {

struct EventName {
    std::string_view strEvent;
    QuestionKind eKind;
    std::string_view strOperation;
};

constexpr EventName EVENT_NAMES[] = {
    {module_facts::EVENT_LAUNCH, QUESTION_LAUNCH, ""},
    {module_facts::EVENT_CREATE, QUESTION_FILE, "create"},
    {module_facts::EVENT_WRITE, QUESTION_FILE, "write"},
    {module_facts::EVENT_RENAME, QUESTION_FILE, "rename"},
    {module_facts::EVENT_REMOVE, QUESTION_FILE, "remove"},
    {module_facts::EVENT_PIPE, QUESTION_PIPE, ""},
    {module_facts::EVENT_UNIT, QUESTION_UNIT, ""},
};

bool BeginsWith(const std::string& strText, std::string_view strPrefix) {
    return strText.compare(0, strPrefix.size(), strPrefix) == 0;
}

bool IsPipe(const std::string& strPath) {
    struct stat status = {};
    return strPath.find('\0') == std::string::npos && stat(strPath.c_str(), &status) == 0 &&
           S_ISFIFO(status.st_mode);
}

void AddFile(const Json::Value& jsonElement, MessageQuestions& all) {
    ModuleQuestion question;
    question.strFile = json_reader::Text(jsonElement, "path");
    question.strProgram = json_reader::Text(jsonElement, "exe_path");
    const std::string strOperation = json_reader::Text(jsonElement, module_facts::MEMBER_OPERATION);
    const auto add = [&all, &question](QuestionKind eKind, const std::string& strWhat) {
        question.eKind = eKind;
        question.strOperation = strWhat;
        all.questions.push_back(question);
    };
    const bool bKnown =
        std::any_of(std::begin(EVENT_NAMES), std::end(EVENT_NAMES), [&](const EventName& name) {
            return name.eKind == QUESTION_FILE && name.strOperation == strOperation;
        });
    if (bKnown && IsAutostart(question.strFile)) {
        add(QUESTION_FILE, strOperation);
    }
    if (strOperation == "create" && IsPipe(question.strFile)) {
        add(QUESTION_PIPE, "");
    }
    if (strOperation == "create" && IsUnit(question.strFile)) {
        add(QUESTION_UNIT, "");
    }
}

bool IsOfFiles(const Json::Value& jsonParam) {
    for (const Json::Value& jsonElement : jsonParam) {
        if (json_reader::Text(jsonElement, module_facts::MEMBER_GROUP) ==
            module_facts::GROUP_QUERY) {
            return json_reader::Text(jsonElement, "context") == module_facts::CONTEXT_FILES;
        }
    }
    return false;
}

}  // namespace

MessageQuestions Of(const std::string& strBody) {
    MessageQuestions all;
    Json::Value jsonRoot;
    const Json::Value* const pParam =
        json_reader::Parse(strBody, jsonRoot) ? json_reader::Member(jsonRoot, "param") : nullptr;
    if (pParam == nullptr || !pParam->isArray()) {
        return all;
    }
    const bool bFiles = IsOfFiles(*pParam);
    for (const Json::Value& jsonElement : *pParam) {
        const size_t nBefore = all.questions.size();
        ++all.nEvents;
        if (json_reader::Member(jsonElement, "path") != nullptr) {
            if (bFiles) {
                AddFile(jsonElement, all);
            } else {
                all.questions.push_back(
                    {QUESTION_LAUNCH, json_reader::Text(jsonElement, "path"), "", ""});
            }
        }
        all.nNoInterest += all.questions.size() == nBefore ? 1 : 0;
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

QuestionKind KindOfEvent(const std::string& strEvent, std::string& strOperation) {
    for (const EventName& name : EVENT_NAMES) {
        if (name.strEvent == strEvent) {
            strOperation = name.strOperation;
            return name.eKind;
        }
    }
    strOperation.clear();
    return QUESTION_NONE;
}

std::string EventOf(QuestionKind eKind, const std::string& strOperation) {
    if (eKind == QUESTION_LAUNCH) {
        return "launch";
    }
    for (const EventName& name : EVENT_NAMES) {
        if (name.eKind == eKind && (eKind != QUESTION_FILE || name.strOperation == strOperation)) {
            return std::string(name.strEvent);
        }
    }
    return "";
}

}  // namespace expected_queries
