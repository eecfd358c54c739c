#include "host/account/RunBooks.h"

#include <sys/stat.h>

#include <algorithm>
#include <string>
#include <utility>

#include "host/base/ModuleFacts.h"
#include "host/verdict/VerdictLevel.h"

namespace {

uint64_t FileSize(const std::string& strPath) {
    struct stat status = {};
    const bool bKnown = stat(strPath.c_str(), &status) == 0 && S_ISREG(status.st_mode);
    return bKnown ? static_cast<uint64_t>(status.st_size) : 0;
}

}  // namespace

RunCounters RunBooks::EndPass() {
    const MutexLock lock(m_mutex);
    m_nInputBefore = m_nInput;
    m_total.Add(m_counters);
    return std::exchange(m_counters, RunCounters());
}

RunCounters RunBooks::Pass() const {
    const MutexLock lock(m_mutex);
    return m_counters;
}

void RunBooks::Fill(Balance& balance, bool bWatch) const {
    const MutexLock lock(m_mutex);
    balance.module = m_total;
    balance.module.Add(m_counters);
    balance.launches = m_launches;
    balance.files = m_files;
    if (!bWatch) {
        balance.input = m_nInput;
        balance.nUnsent =
            balance.bFinal ? m_nUnsent : m_nTaken - std::min(m_nTaken, balance.events.nSent);
    }
}

void RunBooks::Count(const ProgramJudged& event) {
    if (verdict_level::ClassOf(event.verdict.nLevel) == verdict_level::CLASS_BAD) {
        const MutexLock lock(m_mutex);
        ++m_counters.nBadRuns;
    }
}

void RunBooks::Count(const InputUnusable&) {
    const MutexLock lock(m_mutex);
    ++m_counters.nUnusable;
}

void RunBooks::Count(const LaunchCounters& counters) {
    const MutexLock lock(m_mutex);
    m_launches = counters;
}

void RunBooks::Count(const FileCounters& counters) {
    const MutexLock lock(m_mutex);
    m_files = counters;
}

void RunBooks::Count(const LaunchChanged&) {
    const MutexLock lock(m_mutex);
    ++m_counters.nChanged;
}

void RunBooks::Count(const BatchTaken& event) {
    const MutexLock lock(m_mutex);
    m_nInput = m_nInputBefore + event.nSourceEvents;
    m_nTaken += event.batch.nEvents;
}

void RunBooks::Count(const BatchUnsent& event) {
    const MutexLock lock(m_mutex);
    m_nUnsent += event.batch.nEvents;
    ++m_counters.nNotDelivered;
}

void RunBooks::Count(const BatchEnded& event) {
    const MutexLock lock(m_mutex);
    m_counters.CountDelivery(event.batch, event.nResult == 0);
}

void RunBooks::Count(const QueryReceived& event) {
    const CloudQuery& query = event.query;
    const bool bHashed = query.strFunc == module_facts::CONTEXT_LAUNCHES ||
                         query.strFunc == module_facts::FUNC_MAKER;
    const uint64_t nBytes = bHashed ? FileSize(query.strPath) : 0;
    const MutexLock lock(m_mutex);
    m_counters.CountQuery(event.eFate, event.verdict);
    m_counters.nHashedBytes += nBytes;
    m_counters.lastWork = Clock::now();
}

void RunBooks::Count(const ModuleNoted& event) {
    const ModuleNote eNote = event.note.eNote;
    const bool bHashed = eNote == NOTE_CACHED && event.note.eExpected == EXPECTED_LAUNCH;
    const uint64_t nBytes = bHashed ? FileSize(event.note.strText) : 0;
    const MutexLock lock(m_mutex);
    m_counters.CountNote(eNote);
    m_counters.nHashedBytes += nBytes;
    m_counters.lastWork = Clock::now();
    if (!m_counters.firstWork) {
        m_counters.firstWork = m_counters.lastWork;
    }
}

void RunBooks::Count(const CentreRecord&) {
    const MutexLock lock(m_mutex);
    ++m_counters.nCentre;
}
