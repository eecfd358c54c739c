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
    const uint64_t nLaunches = launches.nReported + launches.nRepeated + launches.nUnresolved +
                               launches.nLost + launches.nOwn + launches.nBroken;
    const uint64_t nFiles = files.nOwn + files.nUnwatched + files.nUnresolved + files.nReported;
    const uint64_t nTooMany = nLaunches - std::min(launches.nCaptured, nLaunches) +
                              (nFiles - std::min(files.nCaptured, nFiles));
    // A query that could not be sent names nothing: its expected query is among the missing ones.
    const uint64_t nMissing = events.nMissing - std::min(events.nMissing, module.nNotSent);
    const uint64_t nEnds = events.nRefused + events.nNotStored + events.nWaiting + events.nAnalysed;
    const uint64_t nAtTheEnd =
        launches.Waiting() + files.Waiting() + nMissing + Outstanding() + Batched();
    // A batch that was just taken from its source and is not sent yet is in neither number.
    const uint64_t nOut = events.nSent + Batched() + nUnsent;
    const uint64_t nInHand = Reported() - std::min(Reported(), nOut);
    const bool bInHand = !bFinal && nInHand <= nLargestBatch;
    return nTooMany + (bFinal ? nAtTheEnd : 0) + (bInHand ? 0 : nInHand) +
           (nOut - std::min(nOut, Reported())) + Difference(events.nSent, nEnds) +
           Difference(events.nExpected, events.Settled() + events.nMissing);
}
