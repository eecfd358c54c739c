#include "public/pluginhelper/EventLog.h"

#include <unistd.h>

#include <utility>

#include "framework/base/CDateTime.h"
#include "framework/base/CStr.h"
#include "framework/base/FdWriter.h"
#include "public/pluginhelper/JsonHelpers.h"

namespace {

constexpr char BUSINESS_ID[] = "OviExtHost/TermEvent";
constexpr uint32_t RECORD_VALUE = 1;

template <class Event>
Json::Value FixedItem(const Event& event) {
    Json::Value jsonItem(Json::objectValue);
    (void)SetJsonString("time", jsonItem,
                        CDateTime::currentDateTime().toString("yyyy-MM-dd hh:mm:ss"));
    (void)SetJsonInt("event_id", jsonItem, event.nId);
    (void)SetJsonInt("event_category", jsonItem, event.nCategory);
    (void)SetJsonInt("event_level", jsonItem, event.nLevel);
    return jsonItem;
}

int Send(CCentreSession& session, const std::string& strBusinessId, const char* pszDataType,
         Json::Value jsonItem, int nMode) {
    Json::Value jsonData(Json::arrayValue);
    (void)jsonData.append(std::move(jsonItem));
    Json::Value jsonRoot(Json::objectValue);
    (void)SetJsonString("ID", jsonRoot, "");
    (void)SetJsonString("msg_type", jsonRoot, "2");
    (void)SetJsonString("data_type", jsonRoot, pszDataType);
    (void)SetJsonValue("data", jsonRoot, std::move(jsonData));
    std::string strText;
    if (JsonToText(jsonRoot, strText, true) == 0) {
        // With its two blanks and the one at its end: it is looked for so.
        (void)CFdWriter::Write(STDOUT_FILENO, "EventLog  WriteJsonToString fail \n");
        return 0;
    }
    (void)CFdWriter::Write(STDOUT_FILENO,
                           CStr::stdformat("[EventLog] send msg :%s \n", strText.c_str()));
    return session.sendhub(strText, strBusinessId, RECORD_VALUE, 0, nMode) ? 1 : 0;
}

}  // namespace

int epEventLog(CCentreSession& session, const EpEvent& event, int nMode) {
    try {
        Json::Value jsonItem = FixedItem(event);
        (void)SetJsonString("event_desc", jsonItem, event.strDescription);
        return Send(session, BUSINESS_ID, "epEventLog", std::move(jsonItem), nMode);
    } catch (...) {
        return 0;  // out of memory
    }
}

int epEventLogV2(CCentreSession& session, const std::string& strBusinessId, const EpEventV2& event,
                 int nMode) {
    try {
        Json::Value jsonItem = FixedItem(event);
        if (event.jsonExtra.isObject()) {
            for (const std::string& strName : event.jsonExtra.getMemberNames()) {
                jsonItem[strName] = event.jsonExtra[strName];
            }
        }
        return Send(session, strBusinessId, "epEventLogV2", std::move(jsonItem), nMode);
    } catch (...) {
        return 0;  // out of memory
    }
}
