#include "tevmon/core/CTevCloudCachoMgr.h"

#include <unistd.h>

#include <ctime>

#include "framework/base/FdWriter.h"
#include "public/pluginhelper/LogPrint.h"

namespace {

constexpr char SOURCE[] = "tevmon/core/CTevCloudCachoMgr";
constexpr uint32_t SCAN_INTERVAL_MS = 300000;
constexpr int SCAN_PAGE_ROWS = 10;
constexpr int STORE_ATTEMPTS = 300;  // of a failing call; literal, without a pause

// Lifetimes in seconds. A verdict that is not final is asked for again soon.
constexpr int64_t LIFETIME_FINAL = 15 * 24 * 3600;
constexpr int64_t LIFETIME_OPEN = 20 * 60;

// 0 for a level that is not recorded.
int64_t DefaultLifetime(int32_t nLevel) {
    switch (nLevel) {
        case 10:
        case 20:
        case 70:
            return LIFETIME_FINAL;
        case 30:
        case 40:
        case 50:
            return LIFETIME_OPEN;
        default:
            return 0;
    }
}

// The two texts are formats of their own, so that a sink which distinguishes records by format sees
// which.
void LogRecording(bool bKnown, const CachoRecord& record) {
    LogPrint(LOG_TRACE, SOURCE, "Record", __LINE__,
             bKnown ? "[CTevCloudCachoMgr]: Record (exist) key = %s, nLevel = %d, tmCacho = %d, "
                      "eMid = %d, strDetail = %s"
                    : "[CTevCloudCachoMgr]: Record (new) key = %s, nLevel = %d, tmCacho = %d, "
                      "eMid = %d, strDetail = %s",
             record.key.c_str(), record.nLevel, static_cast<int>(record.nTmInterval), record.eMid,
             record.strDetail.c_str());
}

}  // namespace

CTevCloudCachoMgr::~CTevCloudCachoMgr() {
    Exit();
}

bool CTevCloudCachoMgr::Record(const std::string& strKey, int32_t nLevel, int64_t tmCacho,
                               int32_t eMid, const std::string& strDetail) {
    if (tmCacho == DEFAULT_LIFETIME) {
        tmCacho = DefaultLifetime(nLevel);
    }
    if (tmCacho <= 0) {
        return false;
    }
    CachoRecord existing;
    // A look-up that failed to its last attempt counts as a new key: this is relied on.
    const bool bKnown = Lookup(strKey, existing) == 1;
    CachoRecord record;
    record.key = strKey;
    record.nLevel = nLevel;
    record.nTmInterval = tmCacho;
    record.eMid = eMid;
    record.strDetail = strDetail;
    LogRecording(bKnown, record);
    record.nTmCreate = time(nullptr);
    if (!bKnown) {
        for (int i = 0; i < STORE_ATTEMPTS && m_store.Insert(record) == STORE_BUSY; ++i) {
        }
        return true;
    }
    int nResult = 0;
    std::string strErrors;  // printed at once: 300 lines one by one cost more than their statements
    for (int i = 0; i < STORE_ATTEMPTS && nResult != 1; ++i) {
        nResult = m_store.Update(record, &strErrors);
    }
    (void)CFdWriter::Write(STDOUT_FILENO, strErrors);
    return nResult == 1;
}

bool CTevCloudCachoMgr::GetRecord(const std::string& strKey, CachoRecord& entry) {
    return !strKey.empty() && Lookup(strKey, entry) == 1;
}

bool CTevCloudCachoMgr::Start(Priority ePriority) {
    if (CThread::start(ePriority)) {
        return true;
    }
    LogPrint(LOG_FAIL, SOURCE, "Start", __LINE__, "[CTevCloudCachoMgr]: CThread::start faild.\n");
    return false;
}

void CTevCloudCachoMgr::Exit() {
    EndThread();
    LogPrint(LOG_TRACE, SOURCE, "Exit", __LINE__, "[CTevCloudCachoMgr]: CTevCloudCachoMgr exit.\n");
}

void CTevCloudCachoMgr::EndThread() {
    SetRunning(false);
    (void)CThread::stop();
}

void CTevCloudCachoMgr::run() {
    LogPrint(LOG_TRACE, SOURCE, "run", __LINE__, "[CTevCloudCachoMgr]: CTevCloudCachoMgr start.\n");
    setCurThreadName("CTevCloudCachoMgr");
    SetRunning(true);
    // An Exit before this line has cleared the flag too early; the stop request still ends the
    // loop.
    while (IsRunning()) {
        Wait(SCAN_INTERVAL_MS);
        CheckRecords();
    }
}

void CTevCloudCachoMgr::CheckRecords() {
    if (!IsRunning()) {
        return;
    }
    m_store.Lock();
    CachoPage page;
    while (!isStoped() && m_store.SelectPage(page, SCAN_PAGE_ROWS) >= 1) {
        for (const CachoRecord& record : page.recordList) {
            if (!IsCachoValid(record, time(nullptr))) {
                LogPrint(LOG_TRACE, SOURCE, "CheckRecords", __LINE__,
                         "[CTevCloudCachoMgr]: %s(key) time expire and delete. [nTmCreate = %ld, "
                         "nTmInterval = %ld ]",
                         record.key.c_str(), static_cast<long>(record.nTmCreate),
                         static_cast<long>(record.nTmInterval));
                for (int i = 0; i < STORE_ATTEMPTS && m_store.Delete(record.key) == STORE_BUSY;
                     ++i) {
                }
            }
        }
    }
    m_store.Unlock();
}

int CTevCloudCachoMgr::Lookup(const std::string& strKey, CachoRecord& entry) {
    int nResult = -1;
    for (int i = 0; i < STORE_ATTEMPTS && nResult == -1; ++i) {
        nResult = m_store.Select(strKey, entry);
    }
    return nResult;
}

bool GetLivingRecord(const std::string& strKey, CachoRecord& entry) {
    CTevCloudCachoMgr* pCache = CTevCloudCachoMgr::Instance();
    return pCache != nullptr && pCache->GetRecord(strKey, entry) &&
           IsCachoValid(entry, time(nullptr));
}
