// The texts of a watch: the balance in lines and as JSON members.
//
// Threads: any; no state. Errors: none but std::bad_alloc.
#ifndef HOST_WATCHBLOCK_H
#define HOST_WATCHBLOCK_H

#include <string>

#include "host/Output.h"
#include "host/Text.h"
#include "host/WatchBalance.h"

namespace watch_block {

std::string Text(const Output& output, const WatchBalance& balance);
JsonObject& AddNumbers(JsonObject& record, const WatchBalance& balance);

}  // namespace watch_block

#endif
