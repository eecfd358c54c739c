#include "host/account/Balance.h"

#include <algorithm>

namespace {

uint64_t Difference(uint64_t nLeft, uint64_t nRight) {
    return nLeft > nRight ? nLeft - nRight : nRight - nLeft;
}

}  // namespace

uint64_t Balance::Outstanding() const {
    const uint64_t nEnds = module.nAnswers + module.nKnown + module.nNoKey + module.nLost;
    return module.nQueries - std::min(module.nQueries, nEnds);
}

uint64_t Balance::Unexplained() const {
    const uint64_t nLaunches = launches.nPrograms + launches.nUnresolved + launches.nLost +
                               launches.nOwn + launches.nBroken;
    const uint64_t nFiles = files.nOwn + files.nUnwatched + files.nUnresolved + files.nReported;
    const uint64_t nTooMany = nLaunches - std::min(launches.nCaptured, nLaunches) +
                              (nFiles - std::min(files.nCaptured, nFiles));
    // A query that could not be sent names nothing: its expected query is among the missing ones.
    const uint64_t nMissing = events.nMissing - std::min(events.nMissing, module.nNotSent);
    const uint64_t nEnds = events.nRefused + events.nNotStored + events.nWaiting + events.nAnalysed;
    const uint64_t nAtTheEnd =
        launches.Waiting() + files.Waiting() + nMissing + Outstanding() + Batched();
    return nTooMany + (bFinal ? nAtTheEnd : 0) +
           Difference(events.nSent + Batched() + nUnsent, Reported()) +
           Difference(events.nSent, nEnds) +
           Difference(events.nExpected, events.Settled() + events.nMissing);
}
