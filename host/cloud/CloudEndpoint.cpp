#include "host/cloud/CloudEndpoint.h"

#include <exception>

#include "host/base/JsonReader.h"
#include "host/base/JsonWriter.h"
#include "host/base/ModuleFacts.h"

namespace {

std::string EventName(const Json::Value& jsonParam) {
    const Json::Value* const pItems = json_reader::Member(jsonParam, "ext");
    if (pItems != nullptr && pItems->isArray()) {
        for (const Json::Value& jsonItem : *pItems) {
            if (json_reader::Text(jsonItem, "key") == module_facts::KEY_EVENT) {
                return json_reader::Text(jsonItem, "value");
            }
        }
    }
    return "";
}

bool ReadQuery(const std::string& strBody, CloudQuery& query) {
    Json::Value jsonRoot;
    if (!json_reader::Parse(strBody, jsonRoot) ||
        json_reader::Text(jsonRoot, module_facts::MEMBER_TYPE) != module_facts::QUERY_TYPE) {
        return false;
    }
    const Json::Value* const pParam = json_reader::Member(jsonRoot, "param");
    if (pParam == nullptr) {
        return false;
    }
    query.strPath = json_reader::Text(*pParam, "path");
    query.strFunc = json_reader::Text(*pParam, "func");
    query.strKey = json_reader::Text(*pParam, module_facts::MEMBER_CONTEXT);
    query.strEvent = EventName(*pParam);
    return true;
}

// The level goes as decimal text: the module reads it with atoi.
std::string AnswerBody(const CloudQuery& query, int nLevel) {
    JsonObject param;
    param.Add(module_facts::MEMBER_CONTEXT, query.strKey).Add("func", query.strFunc);
    param.Add("result", std::to_string(nLevel));
    return JsonObject()
        .Add(module_facts::MEMBER_TYPE, module_facts::ANSWER_TYPE)
        .AddJson("param", param.Text())
        .Text();
}

}  // namespace

CloudEndpoint::CloudEndpoint(Router& router, const VerdictService& service, AnswerTracker& keys,
                             ICloudObserver& observer)
    : m_router(router),
      m_service(service),
      m_keys(keys),
      m_observer(observer),
      m_identity(GuidFromText(CLOUD_ENDPOINT)) {}

std::string CloudEndpoint::OnMessage(const Guid& /*sender*/, int64_t nMsgType,
                                     const std::string& strBody) {
    try {
        CloudQuery query;
        Verdict verdict;
        QueryFate eFate = QUERY_UNREADABLE;
        if (nMsgType == MSG_TYPE_CLOUD_QUERY && ReadQuery(strBody, query)) {
            verdict = m_service.Decide(query.strKey);
            eFate = Answer(query, verdict);
        }
        m_observer.OnQuery(query, eFate, verdict);
    } catch (const std::exception&) {
        // Out of memory on one query: it stays unanswered and the module asks again.
    }
    return "";
}

QueryFate CloudEndpoint::Answer(const CloudQuery& query, const Verdict& verdict) {
    if (query.strKey.empty()) {
        return QUERY_NO_KEY;
    }
    if (!m_keys.Begin(query.strKey)) {
        return QUERY_KNOWN;
    }
    const int nLevel = verdict.nLevel;
    const uint32_t nResult =
        m_router.Deliver(m_identity, MSG_TYPE_CLOUD_RESULT, AnswerBody(query, nLevel),
                         [this, strKey = query.strKey, nLevel](uint32_t nCode) {
                             m_keys.End(strKey, nLevel, nCode == 0);
                             m_observer.OnAnswerEnded(strKey, nLevel, nCode == 0);
                         });
    if (nResult != 0) {
        m_keys.End(query.strKey, nLevel, false);
        return QUERY_NOT_DELIVERED;
    }
    return QUERY_ANSWERED;
}
