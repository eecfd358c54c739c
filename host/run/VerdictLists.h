// The verdict sources of a run: the operator's lists, then this machine's packages.
//
// Threads: the control thread. Errors: false, after a text on standard error.
#ifndef HOST_RUN_VERDICTLISTS_H
#define HOST_RUN_VERDICTLISTS_H

#include "host/base/Console.h"
#include "host/run/RunOptions.h"
#include "host/verdict/VerdictService.h"

namespace verdict_lists {

// Loads what options name into service, in the order in which it is asked: lists before packages,
// bad lists before good lists. What a list or the packages leave out is said on standard error.
bool Load(const RunOptions& options, VerdictService& service, Console& output);

}  // namespace verdict_lists

#endif
