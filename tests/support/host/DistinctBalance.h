// A balance in which every number is another one, so that none can stand in another's place. It
// does not add up.
#ifndef TESTS_SUPPORT_HOST_DISTINCTBALANCE_H
#define TESTS_SUPPORT_HOST_DISTINCTBALANCE_H

#include "host/account/Balance.h"

inline Balance DistinctBalance() {
    Balance balance;
    LaunchCounters& launches = balance.launches;
    launches.nCaptured = 101;
    launches.nLost = 102;
    launches.nBroken = 103;
    launches.nOwn = 104;
    launches.nUnresolved = 105;
    launches.nReported = 106;
    launches.nScripts = 107;
    launches.nBatched = 108;
    launches.nScriptsUnreported = 109;
    launches.nArgsCut = 110;
    launches.nArgsUnreadable = 111;
    launches.nOthersLost = 112;
    launches.nAgain = 113;
    launches.nNotHeld = 114;
    launches.nFresh = 115;
    launches.nRepeated = 116;
    FileCounters& files = balance.files;
    files.nCaptured = 201;
    files.nOwn = 202;
    files.nUnwatched = 203;
    files.nUnresolved = 204;
    files.nReported = 205;
    files.nBatched = 206;
    files.nNoProgram = 207;
    files.nOverflows = 208;
    files.nBroken = 209;
    files.nEvents = 210;
    files.nCaptureMicros = 2110000;
    files.nFound = 212;
    files.nGone = 213;
    LedgerState& events = balance.events;
    events.nSent = 3001;
    events.nRefused = 302;
    events.nWaiting = 303;
    events.nWaitingMessages = 304;
    events.nNotStored = 305;
    events.nAnalysed = 306;
    events.nEarlierWaiting = 307;
    events.nEarlierAnalysed = 308;
    events.nIgnored = 309;
    events.nExpected = 310;
    events.nQueried = 311;
    events.nCached = 312;
    events.nUnreadable = 313;
    events.nStatFailed = 314;
    events.nVanished = 315;
    events.nKnownMaker = 316;
    events.nMissing = 317;
    events.nUnmatched = 318;
    RunCounters& module = balance.module;
    module.nQueries = 2010;
    module.nAnswers = 401;
    module.nKnown = 402;
    module.nNoKey = 403;
    module.nLost = 404;
    module.nNotSent = 405;
    module.nCached = 406;
    module.nHashedBytes = 407;
    module.nBadRuns = 408;
    module.nChanged = 409;
    module.answersByLevel = {{10, 411}, {20, 412}, {40, 413}, {70, 414}};
    return balance;
}

#endif
