// The texts of a run's balance in lines and as JSON members.
//
// Threads: any; no state. Errors: none but std::bad_alloc.
#ifndef HOST_REPORT_TEXT_BALANCETEXT_H
#define HOST_REPORT_TEXT_BALANCETEXT_H

#include <string>

#include "host/account/Balance.h"
#include "host/base/Console.h"
#include "host/base/JsonWriter.h"

namespace balance_text {

std::string Text(const Console& output, const Balance& balance);
JsonObject& AddNumbers(JsonObject& record, const Balance& balance);

}  // namespace balance_text

#endif
