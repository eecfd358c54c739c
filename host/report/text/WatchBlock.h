// The texts of a watch: the balance in lines and as JSON members.
//
// Threads: any; no state. Errors: none but std::bad_alloc.
#ifndef HOST_REPORT_TEXT_WATCHBLOCK_H
#define HOST_REPORT_TEXT_WATCHBLOCK_H

#include <string>

#include "host/account/WatchBalance.h"
#include "host/base/Output.h"
#include "host/base/Text.h"

namespace watch_block {

std::string Text(const Output& output, const WatchBalance& balance);
JsonObject& AddNumbers(JsonObject& record, const WatchBalance& balance);

}  // namespace watch_block

#endif
