#include "tevmon/core/CTevChennalMgr.h"

#include <unistd.h>

#include <ctime>
#include <list>
#include <optional>

#include "framework/base/FdWriter.h"
#include "public/pluginhelper/LogPrint.h"
#include "tevmon/core/CTevFsMonitor.h"
#include "tevmon/core/CTevPsMonitor.h"

namespace {

constexpr char SOURCE[] = "tevmon/core/CTevChennalMgr";
constexpr uint32_t DRAIN_INTERVAL_MS = 5000;
constexpr int STORE_ATTEMPTS = 5;  // of a call that finds the database busy; without a pause

// Calls operation until it answers anything but busy, at most STORE_ATTEMPTS times.
template <class Operation>
void WhileBusy(Operation operation) {
    for (int i = 0; i < STORE_ATTEMPTS && operation() == STORE_BUSY; ++i) {
    }
}

// An exception on the way counts as accepted: a message that could never be handled would block
// the queue for ever, across restarts.
template <class Dispatch>
bool Accepted(Dispatch dispatch) {
    try {
        return dispatch();
    } catch (...) {
        return true;
    }
}

}  // namespace

CTevChennalMgr::~CTevChennalMgr() {
    Exit();
}

bool CTevChennalMgr::PushMsg(const std::string& strDetail, int32_t nMid) {
    if (strDetail.empty() || nMid == 0) {
        return false;
    }
    CTevChennalDB* pStore = CTevChennalDB::Instance();
    if (pStore == nullptr) {
        return true;
    }
    try {
        ChennalRecord record;
        record.createtime = time(nullptr);
        record.mid = nMid;
        record.detail = strDetail;
        WhileBusy([&] { return pStore->Insert(record); });
    } catch (...) {  // the store prints what it has no memory for; so does this
        (void)CFdWriter::Write(STDOUT_FILENO, "out of memory\n");
    }
    return true;
}

bool CTevChennalMgr::Start(Priority ePriority) {
    if (CThread::start(ePriority)) {
        return true;
    }
    LogPrint(LOG_FAIL, SOURCE, "Start", __LINE__, "[CTevChennalMgr]: CThread::start faild.\n");
    return false;
}

void CTevChennalMgr::Exit() {
    EndThread();
    LogPrint(LOG_TRACE, SOURCE, "Exit", __LINE__, "[CTevChennalMgr]: CTevChennalMgr exit.\n");
}

void CTevChennalMgr::EndThread() {
    SetRunning(false);
    (void)CThread::stop();
}

void CTevChennalMgr::run() {
    LogPrint(LOG_TRACE, SOURCE, "run", __LINE__, "[CTevChennalMgr]: CTevChennalMgr start.\n");
    setCurThreadName("TevChennalMgr");
    SetRunning(true);
    // An Exit before this line has cleared the flag too early; the stop request still ends the
    // loop.
    while (IsRunning()) {
        Wait(DRAIN_INTERVAL_MS);
        Drain();
    }
}

void CTevChennalMgr::Drain() {
    // The flag first: a thread that was woken to end must not open the database for that.
    CTevChennalDB* pStore = IsRunning() ? CTevChennalDB::Instance() : nullptr;
    if (pStore == nullptr) {
        return;
    }
    std::list<ChennalRecord> recordList;
    std::optional<int64_t> handledId;
    while (IsRunning()) {
        WhileBusy([&] { return pStore->Fetch(recordList, 1); });
        if (recordList.empty()) {
            return;
        }
        const ChennalRecord& record = recordList.front();
        if (handledId == record.id) {
            // It could not be removed (disk full, another process's lock, an id past 32 bits).
            // The next cycle tries again; going on would analyse it thousands of times a second.
            return;
        }
        if (!Accepted([&] { return DisathMsg(record); })) {
            return;
        }
        handledId = record.id;
        WhileBusy([&] { return pStore->Remove(record.id); });
    }
}

bool CTevChennalMgr::DisathMsg(const ChennalRecord& record) {
    LogPrint(LOG_TRACE, SOURCE, "DisathMsg", __LINE__, "handler===> %s\n", record.detail.c_str());
    if (record.mid == MID_PROCESS) {
        CTevPsMonitor* pMonitor = CTevPsMonitor::Instance();
        return pMonitor != nullptr && pMonitor->Run("", record.detail);
    }
    if (record.mid == MID_FILE) {
        CTevFsMonitor* pMonitor = CTevFsMonitor::Instance();
        return pMonitor != nullptr && pMonitor->ParseFsOpMsg("", record.detail);
    }
    return true;
}
