#include "tests/faults/Roads.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <list>
#include <stdexcept>

#include "framework/base/Base64Util.h"
#include "tests/faults/FaultVfs.h"
#include "tests/support/FileText.h"
#include "tests/support/trace/OtherConnection.h"
#include "tevmon/core/CTevChennalMgr.h"
#include "tevmon/core/CTevCloudCachoMgr.h"

namespace fs = std::filesystem;

namespace {

constexpr int FIRST_PUSHED = 12;
constexpr int FIRST_STORED = 40;              // verdict
constexpr int LAST_NUMBER = MAX_NUMBERS - 1;  // the message that is queued after the fault
constexpr int64_t FOR_EVER = 1000000000000;

int SizeOf(int nNumber, uint32_t nSeed) {
    const uint32_t nMixed = (static_cast<uint32_t>(nNumber) + 1) * 2654435761u ^ nSeed * 40503u;
    return static_cast<int>(nMixed >> 8) % ((nMixed & 3) == 0 ? 20000 : 600);
}

std::string MessageOf(int nNumber, uint32_t nSeed) {
    return std::to_string(nNumber) + " " +
           std::string(static_cast<size_t>(SizeOf(nNumber, nSeed)), 'm');
}

int NumberOf(const std::string& strText) {
    const int nNumber = atoi(strText.c_str());
    return nNumber >= 0 && nNumber < MAX_NUMBERS ? nNumber : LAST_NUMBER;
}

bool HasExpired(int nNumber, uint32_t nSeed) {
    return nNumber < FIRST_STORED && nNumber % static_cast<int>(2 + nSeed % 3) == 1;
}

CachoRecord VerdictOf(int nNumber, uint32_t nSeed) {
    CachoRecord record;
    record.key = "key" + std::to_string(nNumber);
    record.nLevel = nNumber;
    record.nTmCreate = 1000;
    record.nTmInterval = HasExpired(nNumber, nSeed) ? 1 : FOR_EVER;
    record.eMid = 5;
    record.strDetail = std::string(static_cast<size_t>(nNumber) * (30 + nSeed * 19 % 90), 'd');
    return record;
}

class OwnQueue : public CTevChennalDB {
public:
    OwnQueue() = default;
    ~OwnQueue() = default;
};

// Its analyser only notes what it is handed.
class NotingChannel : public CTevChennalMgr {
public:
    explicit NotingChannel(Promises& promises) : m_promises(promises) { SetRunning(true); }
    ~NotingChannel() override = default;
    using CTevChennalMgr::Drain;

protected:
    bool DisathMsg(const ChennalRecord& record) override {
        ++m_promises.handed[NumberOf(record.detail)];
        return true;
    }

private:
    Promises& m_promises;
};

class OwnCache : public CTevCloudCachoMgr {
public:
    OwnCache() { SetRunning(true); }
    ~OwnCache() override = default;
    using CTevCloudCachoMgr::CheckRecords;
};

// [child] The road's own, made on first use and never ended: what comes after the fault uses the
// same connection.
CTevCloudCachoDB* s_pStore = nullptr;
OwnCache* s_pCache = nullptr;
bool s_bStruckInOpening = false;  // then it may have stayed closed

CTevCloudCachoDB& Store() {
    if (s_pStore == nullptr) {
        s_pStore = new CTevCloudCachoDB;
    }
    return *s_pStore;
}

OwnCache& Cache() {
    if (s_pCache == nullptr) {
        s_pCache = new OwnCache;
        s_bStruckInOpening = FaultVfs::HasStruck();
    }
    return *s_pCache;
}

int Push(CTevChennalDB& store, Promises& promises, int nNumber, uint32_t nSeed) {
    ChennalRecord record;
    record.createtime = 1000;
    record.mid = 5;
    record.detail = MessageOf(nNumber, nSeed);
    const int nResult = store.Insert(record);
    if (nResult == 0) {
        promises.acknowledged[nNumber] = 1;
    }
    return nResult;
}

void RoadOpen(Promises&, uint32_t) {
    const OwnQueue queue;
    const CTevCloudCachoDB cache;
}

// The first start of all, and what it takes in.
void RoadCreate(Promises& promises, uint32_t nSeed) {
    fs::remove("../data/db/tevchennaldb.db");
    fs::remove("../data/db/tevcloudcacho.db");
    std::memset(&promises, 0, sizeof(promises));
    CTevChennalDB* pQueue = CTevChennalDB::Instance();
    CTevCloudCachoDB& cache = Store();
    for (int i = 0; i < static_cast<int>(nSeed % 5); ++i) {
        (void)Push(*pQueue, promises, FIRST_PUSHED + i, nSeed);
        if (cache.Insert(VerdictOf(FIRST_STORED + i, nSeed)) == 0) {
            promises.recorded[FIRST_STORED + i] = 1;
        }
    }
}

void RoadPush(Promises& promises, uint32_t nSeed) {
    CTevChennalDB* pQueue = CTevChennalDB::Instance();
    const int nLast = FIRST_PUSHED + 3 + static_cast<int>(nSeed % 8);
    for (int i = FIRST_PUSHED; i < nLast; ++i) {
        (void)Push(*pQueue, promises, i, nSeed);
    }
}

void RoadTake(Promises& promises, uint32_t nSeed) {
    CTevChennalDB* pQueue = CTevChennalDB::Instance();
    std::list<ChennalRecord> recordList;
    for (int i = 0; i < FirstMessages(nSeed); ++i) {
        if (pQueue->FetchAndRemove(recordList, 1 + static_cast<int>(nSeed % 3)) == 0) {
            for (const ChennalRecord& record : recordList) {
                ++promises.handed[NumberOf(record.detail)];
            }
        }
    }
}

void RoadDrain(Promises& promises, uint32_t) {
    NotingChannel channel(promises);
    channel.Drain();
}

void RoadPushAndDrain(Promises& promises, uint32_t nSeed) {
    NotingChannel channel(promises);
    CTevChennalDB* pStore = CTevChennalDB::Instance();
    for (int i = FIRST_PUSHED; i < FIRST_PUSHED + 4; ++i) {
        (void)Push(*pStore, promises, i, nSeed);
        if (i % 2 == 0) {
            channel.Drain();
        }
    }
}

void RoadLookUp(Promises&, uint32_t) {
    OwnCache& cache = Cache();
    for (int i = 0; i < 3; ++i) {
        CachoRecord record;
        const bool bFound = cache.GetRecord("key" + std::to_string(i), record);
        if (bFound && record.nLevel != i) {
            abort();
        }
        if (cache.GetRecord("none", record)) {
            abort();
        }
    }
}

void RoadStoreVerdict(Promises& promises, uint32_t nSeed) {
    CTevCloudCachoDB& store = Store();
    const int nLast = FIRST_STORED + 4 + static_cast<int>(nSeed % 8);
    for (int i = FIRST_STORED; i < nLast; ++i) {
        if (store.Insert(VerdictOf(i, nSeed)) == 0) {
            promises.recorded[i] = 1;
        }
    }
}

void RoadRecord(Promises&, uint32_t nSeed) {
    OwnCache& cache = Cache();
    for (uint32_t i = 0; i < 1 + nSeed % 4; ++i) {
        (void)cache.Record("new" + std::to_string(i), 70, FOR_EVER, 5,
                           std::string(nSeed * 997 % 5000, 'd'));
    }
    (void)cache.Record("key2", 70, 1000, 5, "detail");
}

void RoadExpire(Promises&, uint32_t) {
    OwnCache& cache = Cache();
    cache.CheckRecords();
    cache.CheckRecords();
}

void WriteContent(const std::string& strFile, const std::string& strContent) {
    std::ofstream(strFile, std::ios::binary | std::ios::trunc) << strContent;
    fs::remove(strFile + "-journal");
}

constexpr char QUEUE_FILE[] = "../data/db/tevchennaldb.db";
constexpr char CACHE_FILE[] = "../data/db/tevcloudcacho.db";
constexpr char QUEUE_COPY[] = "queue-copy.db";
constexpr char CACHE_COPY[] = "cache-copy.db";

void CopyDatabase(const std::string& strFrom, const std::string& strTo) {
    WriteContent(strTo, FileText(strFrom));
    const std::string strJournal = strFrom + "-journal";
    if (fs::exists(strJournal)) {
        std::ofstream(strTo + "-journal", std::ios::binary) << FileText(strJournal);
    }
}

void CheckIntegrity(OtherConnection& db, const char* pszWhich, std::vector<std::string>& broken) {
    const std::vector<std::string> answer = db.Rows("pragma integrity_check");
    if (answer != std::vector<std::string>{"ok"}) {
        broken.push_back(std::string(pszWhich) + ": " + (answer.empty() ? "" : answer.front()));
    }
}

void CheckQueue(const Promises& promises, int nRepeats, bool bNoneLeft,
                std::vector<std::string>& broken) {
    OtherConnection db(QUEUE_COPY);
    CheckIntegrity(db, "queue", broken);
    int stored[MAX_NUMBERS] = {};
    if (db.Rows("select count(*) from sqlite_master where name = 'msgchennal'").front() == "1") {
        for (const std::string& strDetail : db.Rows("select detail from msgchennal")) {
            ++stored[NumberOf(Base64Util::Base64Decode(strDetail))];
        }
    }
    int nRepeated = 0;
    for (int i = 0; i < MAX_NUMBERS; ++i) {
        if (promises.acknowledged[i] != 0 && stored[i] + promises.handed[i] == 0) {
            broken.push_back("message " + std::to_string(i) + " is lost");
        }
        if (bNoneLeft && stored[i] != 0 && i != LAST_NUMBER) {
            broken.push_back("message " + std::to_string(i) + " is queued still");
        }
        if (stored[i] > 1) {
            broken.push_back("message " + std::to_string(i) + " is stored twice");
        }
        nRepeated += promises.handed[i] > 1 ? promises.handed[i] - 1 : 0;
    }
    if (nRepeats >= 0 && nRepeated > nRepeats) {
        broken.push_back(std::to_string(nRepeated) + " messages were handed over once more");
    }
}

void CheckCache(const Promises& promises, uint32_t nSeed, std::vector<std::string>& broken) {
    OtherConnection db(CACHE_COPY);
    CheckIntegrity(db, "cache", broken);
    for (int i = 0; i < MAX_NUMBERS; ++i) {
        const CachoRecord record = VerdictOf(i, nSeed);
        const std::vector<std::string> found = db.Rows(
            "select level || '|' || tmcreate || '|' || length(detail) from cachotable "
            "where vkey = '" +
            record.key + "'");
        const std::string strWanted =
            std::to_string(i) + "|1000|" + std::to_string((record.strDetail.size() + 2) / 3 * 4);
        if (promises.recorded[i] != 0 && found != std::vector<std::string>{strWanted}) {
            broken.push_back("verdict " + std::to_string(i) + " is lost or changed");
        }
    }
}

}  // namespace

const std::vector<Road> ROADS = {
    {"open", RoadOpen, false},     {"create", RoadCreate, true},
    {"burst", RoadPush, true},     {"take", RoadTake, true},
    {"drain", RoadDrain, true},    {"burst_and_drain", RoadPushAndDrain, true},
    {"lookup", RoadLookUp, false}, {"store_verdict", RoadStoreVerdict, true},
    {"record", RoadRecord, true},  {"expiry", RoadExpire, true},
};

const Road& RoadOf(const std::string& strName) {
    for (const Road& road : ROADS) {
        if (strName == road.pszName) {
            return road;
        }
    }
    throw std::runtime_error("no road " + strName);
}

RoadPlace::RoadPlace() : m_strOldDir(fs::current_path().string()) {
    std::string strTemplate = (fs::temp_directory_path() / "tevmon-faults-XXXXXX").string();
    if (mkdtemp(strTemplate.data()) == nullptr) {
        throw std::runtime_error("cannot make a directory");
    }
    m_strDir = strTemplate;
    fs::create_directories(m_strDir + "/data/db");
    fs::create_directory(m_strDir + "/run");
    fs::current_path(m_strDir + "/run");
    m_pPromises = static_cast<Promises*>(
        mmap(nullptr, sizeof(Promises), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    FaultVfs::NoteInto(m_pPromises->struck);
}

RoadPlace::~RoadPlace() {
    FaultVfs::NoteInto(nullptr);
    std::error_code ignored;
    fs::current_path(m_strOldDir, ignored);
    fs::remove_all(m_strDir, ignored);
    (void)munmap(m_pPromises, sizeof(Promises));
}

void RoadPlace::Prepare(uint32_t nSeed) {
    fs::remove(QUEUE_FILE);
    fs::remove(CACHE_FILE);
    {
        OwnQueue queue;
        for (int i = 0; i < FirstMessages(nSeed); ++i) {
            (void)Push(queue, *m_pPromises, i, nSeed);
        }
        CTevCloudCachoDB cache;
        for (int i = 0; i < FirstVerdicts(nSeed); ++i) {
            (void)cache.Insert(VerdictOf(i, nSeed));
        }
    }
    m_strQueue = FileText(QUEUE_FILE);
    m_strCache = FileText(CACHE_FILE);
    m_nSeed = nSeed;
}

void RoadPlace::Reset(uint32_t nSeed) {
    WriteContent(QUEUE_FILE, m_strQueue);  // and away with a journal
    WriteContent(CACHE_FILE, m_strCache);
    if (m_strQueue.empty() || nSeed != m_nSeed) {
        Prepare(nSeed);
    }
    std::memset(m_pPromises, 0, sizeof(Promises));
    for (int i = 0; i < FirstMessages(nSeed); ++i) {
        m_pPromises->acknowledged[i] = 1;
    }
    for (int i = 0; i < FirstVerdicts(nSeed); ++i) {
        m_pPromises->recorded[i] = HasExpired(i, nSeed) ? 0 : 1;
    }
}

int RoadPlace::InChild(const std::function<int()>& work) const {
    const pid_t nChild = fork();
    if (nChild == 0) {
        (void)alarm(100);
        const int nNull = open("/dev/null", O_WRONLY | O_CLOEXEC);
        (void)dup2(nNull, STDOUT_FILENO);
        (void)dup2(nNull, STDERR_FILENO);
        int nCode = 99;
        try {
            nCode = work();
        } catch (...) {  // the code says it
        }
        _exit(nCode);
    }
    int nStatus = -1;
    (void)waitpid(nChild, &nStatus, 0);
    return nStatus;
}

std::vector<std::string> RoadPlace::Broken(int nRepeats, Left eLeft) const {
    CopyDatabase(QUEUE_FILE, QUEUE_COPY);
    CopyDatabase(CACHE_FILE, CACHE_COPY);
    std::vector<std::string> broken;
    if (eLeft == LEFT_UNKNOWN) {
        OtherConnection queue(QUEUE_COPY);
        CheckIntegrity(queue, "queue", broken);
    } else {
        CheckQueue(*m_pPromises, nRepeats, eLeft == LEFT_NONE, broken);
    }
    CheckCache(*m_pPromises, m_nSeed, broken);
    return broken;
}

void DrainAll(Promises& promises) {
    RoadDrain(promises, 0);
}

void QueueOneMore(Promises& promises) {
    CTevChennalDB* pStore = CTevChennalDB::Instance();
    if (pStore != nullptr && Push(*pStore, promises, LAST_NUMBER, 0) == CPPSQLITE_ERROR) {
        OwnQueue queue;  // one that could not be opened stays closed; the next start opens it
        (void)Push(queue, promises, LAST_NUMBER, 0);
    }
    promises.worksOn = promises.acknowledged[LAST_NUMBER];
}

void RecordOneMore(Promises& promises) {
    constexpr char KEY[] = "one more";
    CachoRecord record = VerdictOf(LAST_NUMBER, 0);
    if (s_pStore != nullptr) {
        const int nResult = s_pStore->Insert(record);
        if (nResult != 0 && nResult != CPPSQLITE_ERROR) {
            return;
        }
    }
    (void)Cache().Record(KEY, 70, FOR_EVER, 5, "");
    if (!Cache().GetRecord(KEY, record)) {
        if (!s_bStruckInOpening) {
            return;
        }
        OwnCache cache;
        (void)cache.Record(KEY, 70, FOR_EVER, 5, "");
        if (!cache.GetRecord(KEY, record)) {
            return;
        }
    }
    promises.cacheWorksOn = 1;
}
