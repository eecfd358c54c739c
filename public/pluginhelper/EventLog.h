// Reports events of a plug-in's own to the host's event log, through the centre endpoint.
//
// Threads: any; no state. Errors: 1 when the event was sent, 0 when not (its reason stands on
//   standard output or in the log); nothing throws.
#ifndef PUBLIC_PLUGINHELPER_EVENTLOG_H
#define PUBLIC_PLUGINHELPER_EVENTLOG_H

#include <json/value.h>

#include <cstdint>
#include <string>

#include "public/pluginhelper/CCentreSession.h"

struct EpEvent {
    int32_t nLevel = 0;
    int32_t nId = 0;
    int32_t nCategory = 0;
    std::string strDescription;
};

struct EpEventV2 {
    int32_t nLevel = 0;
    int32_t nId = 0;
    int32_t nCategory = 0;
    Json::Value jsonExtra;  // an object, whose members stand beside the fixed ones and overwrite
                            // those of the same name; anything else counts as none
};

// Sends the event, stamped with the local time, under "OviExtHost/TermEvent". nMode 0 sends a
// record of type 2, 1 one of type 1, any other nothing.
int epEventLog(CCentreSession& session, const EpEvent& event, int nMode);

// The same under the caller's business id.
int epEventLogV2(CCentreSession& session, const std::string& strBusinessId, const EpEventV2& event,
                 int nMode);

#endif
