// Messages and keys that mean harm, through the whole road.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <json/value.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <set>
#include <sstream>

#include "framework/log/CLogDebug.h"
#include "public/pluginhelper/CMsgRouterHolder.h"
#include "public/pluginhelper/JsonReaders.h"
#include "tests/hostile/Generator.h"
#include "tests/hostile/Options.h"
#include "tests/support/FakeRouter.h"
#include "tests/support/LogCapture.h"
#include "tests/support/StdoutCapture.h"
#include "tests/support/TestDir.h"
#include "tests/support/ThreadTime.h"
#include "tests/support/trace/OtherConnection.h"
#include "tevmon/core/CTevChennalMgr.h"
#include "tevmon/core/CTevCloudCachoMgr.h"
#include "tevmon/core/CTevFsMonitor.h"
#include "tevmon/core/CTevMonIpcRecever.h"

namespace fs = std::filesystem;
using Texts = std::vector<std::string>;

namespace {

class Channel : public CTevChennalMgr {
public:
    Channel() { SetRunning(true); }
    ~Channel() override = default;
    using CTevChennalMgr::Drain;
};

// Larger than what is hashed, and next to nothing on the disk.
std::string MakeHole(const TestDir& dir) {
    std::string strFile = dir.WriteFile("hole", "");
    EXPECT_EQ(0, truncate(strFile.c_str(), off_t{5} << 30));
    return strFile;
}

// One of every kind of file that a path can lead to.
Texts MakeKinds(const TestDir& dir) {
    const std::string strDir = dir.Path() + "/kinds";
    fs::create_directory(strDir);
    EXPECT_EQ(0, mkfifo((strDir + "/fifo").c_str(), 0600));
    fs::create_symlink("loop", strDir + "/loop");
    fs::create_symlink("fifo", strDir + "/link-to-fifo");
    fs::create_symlink("/dev/zero", strDir + "/link-to-device");
    fs::create_symlink("nowhere", strDir + "/dangling");
    const int nSocket = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const std::string strSocket = strDir + "/socket";
    strSocket.copy(address.sun_path, sizeof(address.sun_path) - 1);
    EXPECT_EQ(0, bind(nSocket, reinterpret_cast<sockaddr*>(&address), sizeof(address)));
    (void)close(nSocket);
    return {strDir,
            strDir + "/fifo",
            strDir + "/loop",
            strDir + "/link-to-fifo",
            strDir + "/link-to-device",
            strDir + "/dangling",
            strDir + "/socket",
            "/dev/zero",
            "/dev/random",
            "/dev/tty",
            "/proc/self/exe",
            "/proc/self/status",
            "/proc/self/fd/0",
            "/proc/kmsg",
            "/proc/self/task",
            "",
            "/",
            "/dev/null",
            "/usr",
            "/etc/" + std::string(5000, 'l'),
            "/" + std::string(255, 'l') + "/" + std::string(256, 'l'),
            dir.WriteFile("bash", "an interpreter"),
            dir.WriteFile("a.sh", "a script"),
            dir.WriteFile("empty", ""),
            MakeHole(dir),
            dir.WriteFile("program", "a program")};
}

void Receive(CTevMonIpcRecever& recever, int64_t nMsgType, const std::string& strBody) {
    const Guid sender = {};
    (void)recever.ReceiveCallback(&sender, nMsgType, strBody.data(),
                                  static_cast<uint32_t>(strBody.size()), nullptr, 0);
}

class CountingRouter : public FakeRouter {
public:
    long nPosts = 0;
    uint32_t Post(const Guid*, int64_t, const void*, uint32_t) override {
        ++nPosts;
        return 0;
    }
};

// Every line of the log is made and written, and nobody has to read it.
class Silence {
public:
    Silence() : m_nOut(dup(STDOUT_FILENO)), m_nErr(dup(STDERR_FILENO)) {
        const int nNull = open("/dev/null", O_WRONLY | O_CLOEXEC);
        (void)dup2(nNull, STDOUT_FILENO);
        (void)dup2(nNull, STDERR_FILENO);
        (void)close(nNull);
        CLogDebug::Instance()->SetLevel(0);
    }
    ~Silence() {
        CLogDebug::Instance()->SetLevel(4);
        (void)dup2(m_nOut, STDOUT_FILENO);
        (void)dup2(m_nErr, STDERR_FILENO);
        (void)close(m_nOut);
        (void)close(m_nErr);
    }
    Silence(const Silence&) = delete;
    Silence& operator=(const Silence&) = delete;

private:
    const int m_nOut;
    const int m_nErr;
};

std::string WithoutPairs(std::string strText, const char* pszInstead) {
    for (size_t n = strText.find("''"); n != std::string::npos; n = strText.find("''", n)) {
        strText.replace(n, 2, pszInstead);
        n += strlen(pszInstead);
    }
    return strText;
}

std::string TextOf(const Json::Value& json, const char* pszKey) {
    try {
        return json.isObject() ? json[pszKey].asString() : "";
    } catch (const Json::Exception&) {  // an array or an object
        return "";
    }
}

// What the cache has to hold after the answers: "key|level" by key.
class ExpectedRows {
public:
    void Take(const Json::Value& jsonRoot) {
        if (TextOf(jsonRoot, "msg_type") != "cloudqr") {
            return;
        }
        const Json::Value& jsonParam = jsonRoot["param"];
        const bool bLevel = jsonParam.isObject() && jsonParam.isMember("result");
        const int nLevel = bLevel ? atoi(TextOf(jsonParam, "result").c_str()) : 40;
        const std::string strKey = TextOf(jsonParam, "context");
        const bool bRecorded = std::set<int>{10, 20, 30, 40, 50, 70}.count(nLevel) != 0;
        // A quote without its second, or a NUL, is nothing that a row's key can be made of.
        if (bRecorded && !strKey.empty() && strKey.find('\0') == std::string::npos &&
            WithoutPairs(strKey, "").find('\'') == std::string::npos) {
            const std::string strStored = WithoutPairs(strKey, "'");
            (void)m_rows.try_emplace(strStored, strStored + "|" + std::to_string(nLevel));
        }
    }
    Texts Rows() const {
        Texts rows;
        for (const auto& row : m_rows) {
            rows.push_back(row.second);
        }
        return rows;
    }
    void Clear() { m_rows.clear(); }

private:
    std::map<std::string, std::string> m_rows;
};

class HostileTest : public testing::Test {
protected:
    const TestDir m_dir;
    FakeRouter m_router;
};

int Queries(const FakeRouter& router, const std::string& strEvent) {
    int nQueries = 0;
    for (const SentMessage& message : router.Posts()) {
        nQueries += message.strData.find("\"" + strEvent + "\"") != std::string::npos ? 1 : 0;
    }
    return nQueries;
}

// What came of a handler's calls: its queries, and its lines about programs and files.
int QueriesAndLines(const FakeRouter& router, const LogCapture& log, const std::string& strEvent) {
    int nBoth = Queries(router, strEvent);
    for (const CapturedLog& record : log.All()) {
        nBoth += record.nLevel == 4 && record.strFunction == strEvent + "Handler" ? 1 : 0;
    }
    return nBoth;
}

Texts FilesBelow(const std::string& strDir) {
    Texts files;
    for (const auto& entry : fs::recursive_directory_iterator(strDir)) {
        files.push_back(entry.path().filename().string());
    }
    std::sort(files.begin(), files.end());
    return files;
}

}  // namespace

namespace {

// Everything that messages go through, and what it has to have done after each.
class Road {
public:
    explicit Road(const TestDir& dir) : m_cache(dir.Database("tevcloudcacho.db")) {
        (void)CTevCloudCachoMgr::Instance();
    }

    // What does not hold after the message; empty when all does.
    std::string Send(int64_t nType, const std::string& strBody, long nQueued) {
        const double dBegin = ThreadSeconds();
        Receive(m_recever, nType, strBody);
        Json::Value jsonRoot;
        const bool bParsed = ParseJsonText(strBody, jsonRoot);
        const long nWanted = bParsed && nType == 20002 ? nQueued : 0;
        const long nCount = m_pStore->Count();
        m_channel.Drain();
        const long nLeft = m_pStore->Count();
        dLongest = std::max(dLongest, ThreadSeconds() - dBegin);
        m_nQueued += nCount;
        if (nCount != nWanted || nLeft != 0) {
            return std::to_string(nCount) + " queued instead of " + std::to_string(nWanted) + ", " +
                   std::to_string(nLeft) + " left";
        }
        return nType == 20002 ? "" : Recorded(nType == 20003 && bParsed, jsonRoot);
    }

    long Queued() const { return m_nQueued; }
    long Recorded() const { return m_nRecorded; }
    double dLongest = 0;  // of the thread's processor time, in seconds

private:
    std::string Recorded(bool bAnswer, const Json::Value& jsonRoot) {
        if (bAnswer) {
            m_expected.Take(jsonRoot);
        }
        const Texts wanted = m_expected.Rows();
        const Texts rows = m_cache.Rows("select vkey,level from cachotable order by vkey");
        if (rows != wanted) {
            return std::to_string(rows.size()) + " verdicts instead of " +
                   std::to_string(wanted.size()) + ", or others";
        }
        m_nRecorded += rows.size() > m_nRows ? 1 : 0;
        m_nRows = rows.size();
        if (rows.size() >= 100) {
            m_nRows = 0;
            m_expected.Clear();
            (void)m_cache.Exec("delete from cachotable");
        }
        return "";
    }

    CTevMonIpcRecever m_recever;
    Channel m_channel;
    CTevChennalDB* m_pStore = CTevChennalDB::Instance();
    OtherConnection m_cache;
    ExpectedRows m_expected;
    long m_nQueued = 0;
    long m_nRecorded = 0;
    size_t m_nRows = 0;
};

}  // namespace

TEST_F(HostileTest, EveryMessageIsCountedAnalysedAndGone) {
    Generator generator(static_cast<uint32_t>(g_options.nSeed), MakeKinds(m_dir));
    CountingRouter router;
    CMsgRouterHolder::Instance()->SetRouter(&router);
    Road road(m_dir);
    std::string strBroken;
    std::string strBody;
    int64_t nType = 0;
    long i = 0;

    {
        const Silence silence;  // errors of keys, 300 lines each
        for (; i < g_options.nMessages && strBroken.empty(); ++i) {
            nType = generator.Type();
            long nQueued = 0;
            strBody = generator.Message(nQueued);
            if (nType != 20002 && i % 8 != 0) {
                strBody = generator.Verdict();
            }
            strBroken = road.Send(nType, strBody, nQueued);
        }
    }

    EXPECT_EQ("", strBroken) << "message " << i - 1 << " of seed " << g_options.nSeed << ", type "
                             << nType << ": " << strBody.substr(0, 2000);
    std::cout << "messages: " << i << " of seed " << g_options.nSeed << ", " << road.Queued()
              << " queued, " << road.Recorded() << " recorded, " << router.nPosts
              << " queries, longest " << road.dLongest << " s of processor time\n";
    EXPECT_LT(road.dLongest, HANGS_SECONDS);
    EXPECT_LT(i / 3, road.Queued());
    EXPECT_LT(i / 40, road.Recorded());
    EXPECT_LT(i / 20, router.nPosts);
}

TEST_F(HostileTest, AKeyChangesNoRowButItsOwnAndMakesNoFile) {
    Generator generator(static_cast<uint32_t>(g_options.nSeed), {""});
    CTevCloudCachoDB store;
    CachoRecord known;
    known.key = "known";
    known.nLevel = 70;
    ASSERT_EQ(0, store.Insert(known));
    known.key = "other";
    ASSERT_EQ(0, store.Insert(known));
    OtherConnection db(m_dir.Database("tevcloudcacho.db"));
    const Texts files = FilesBelow(m_dir.Path());
    const std::string strRows = "select * from cachotable order by rowid";
    ASSERT_EQ(2u, db.Rows(strRows).size());
    long nInserted = 0;

    for (long i = 0; i < g_options.nKeys; ++i) {
        CachoRecord record;
        record.key = generator.Key();
        record.nLevel = 10;
        const Texts before = db.Rows(strRows);
        Texts after;
        int nInsert = 0;
        int nDelete = 1;
        {
            const Silence silence;
            nInsert = store.Insert(record);
            after = db.Rows(strRows);
            (void)store.Update(record);
            CachoRecord found;
            (void)store.Select(record.key, found);
        }
        const std::string strRow = "NULL|" + WithoutPairs(record.key, "'") + "|10|0|0||0";
        Texts wanted = before;
        if (nInsert == 0) {
            wanted.push_back(strRow);
            ++nInserted;
        }
        ASSERT_EQ(wanted, after) << "key " << i << ": " << record.key;
        ASSERT_EQ(wanted, db.Rows(strRows)) << "key " << i << ": " << record.key;
        if (nInsert == 0 ? i % 4 != 0 : record.key != "known" && record.key != "other") {
            const Silence silence;
            store.Lock();
            nDelete = store.Delete(record.key);
            store.Unlock();
        }
        if (nDelete == 0) {
            wanted.erase(std::remove(wanted.begin(), wanted.end(), strRow), wanted.end());
        }
        ASSERT_EQ(wanted, db.Rows(strRows)) << "key " << i << ": " << record.key;
        if (wanted.size() > 40) {
            (void)db.Exec("delete from cachotable where vkey not in('known','other')");
        }
        if (i % 500 == 0) {
            ASSERT_EQ(files, FilesBelow(m_dir.Path())) << "key " << i;
        }
    }

    EXPECT_EQ(files, FilesBelow(m_dir.Path()));
    EXPECT_EQ(Texts{"0"}, db.Rows("pragma user_version"));
    EXPECT_EQ(Texts{"ok"}, db.Rows("pragma integrity_check"));
    EXPECT_LT(g_options.nKeys / 100, nInserted);
    std::cout << "keys: " << g_options.nKeys << " of seed " << g_options.nSeed << ", " << nInserted
              << " of them are plain text\n";
}

TEST_F(HostileTest, AKeyThatIsALongRunningStatementIsNotRunByEveryOneOfTheTries) {
    const std::string strTen = "(values(1),(2),(3),(4),(5),(6),(7),(8),(9),(10))";
    std::string strKey = "x' or (select count(*) from " + strTen + " a";
    for (int i = 0; i < 9; ++i) {
        strKey += "," + strTen + " b" + std::to_string(i);
    }
    strKey += ")=1 or 'y'='x";
    CTevCloudCachoMgr* pCache = CTevCloudCachoMgr::Instance();
    ASSERT_TRUE(pCache->Record("a row to look at", 70, -1, 5, ""));
    const double dBegin = ThreadSeconds();
    Texts lines;

    {
        const StdoutCapture capture;
        EXPECT_TRUE(pCache->Record(strKey, 70, -1, 5, ""));
        lines = capture.Lines();
    }

    // A second for the lookup, a second for the insert; each of the 300 tries says what happened.
    EXPECT_LT(ThreadSeconds() - dBegin, HANGS_SECONDS);
    EXPECT_LE(300u, lines.size());
    CachoRecord found;
    EXPECT_TRUE(pCache->Record("later", 70, -1, 5, ""));
    EXPECT_TRUE(pCache->GetRecord("later", found));
}

// What the fuzzer begins with, seen from where it begins: a directory with a program and a pipe.
TEST_F(HostileTest, TheFuzzersSeedOfFileOperationsReachesEveryHandler) {
    std::ofstream("program") << "a program";
    ASSERT_EQ(0, mkfifo("fifo", 0600));
    CMsgRouterHolder::Instance()->SetRouter(&m_router);
    std::ostringstream seed;
    seed << std::ifstream(SOURCE_DIR "/fuzz/seeds/file_batch/operations").rdbuf();

    EXPECT_TRUE(CTevFsMonitor::Instance()->ParseFsOpMsg("", seed.str()));

    for (const char* pszEvent :
         {"FileDelete", "FileModify", "FileRename", "ProcessPipe", "AddAutoRuns"}) {
        EXPECT_EQ(1, Queries(m_router, pszEvent)) << pszEvent;
    }
}

// path_kinds.py runs this under a trace of system calls.
TEST_F(HostileTest, EveryKindOfPathIsLookedAtByEveryHashingCaller) {
    const Texts kinds = MakeKinds(m_dir);
    CMsgRouterHolder::Instance()->SetRouter(&m_router);
    CTevMonIpcRecever recever;
    Channel channel;

    // Each kind as the launched program, as the word of a command, as the file and as its maker.
    const auto deliver = [&](const std::string& strMembers) {
        Receive(recever, 20002,
                R"({"param":[{"grup":"cloudquery",)" + strMembers + R"("time":1}]})");
        channel.Drain();
    };
    // Watched by its text, in truth a file that is there.
    const std::string strWatched = "/etc/profile.d/../.." + m_dir.Path() + "/program";
    const LogCapture log;
    for (const std::string& strKind : kinds) {
        for (const std::string& strPath : {strKind, strKind + R"(\u0000/x)"}) {
            deliver(R"("context":"cloudad","cmd":"bash )" + strPath + R"(","path":")" + strPath +
                    R"(",)");
            deliver(R"("context":"cloudad","cmd":"bash )" + strPath + R"(","path":")" +
                    m_dir.Path() + R"(/bash",)");
            for (const char* pszOperation : {"create", "remove", "rename", "write"}) {
                for (const std::string& strFile :
                     Texts{"/etc/cron.d/a", strWatched, strPath, m_dir.Path() + "/kinds/fifo",
                           "/etc/systemd/system/a.service"}) {
                    deliver(R"("context":"cloudfd","exe_path":")" + strPath + R"(","path":")" +
                            strFile + R"(","optertion":")" + pszOperation + R"(",)");
                }
            }
        }
    }

    std::cout << "paths: " << kinds.size() << " kinds\n";
    EXPECT_EQ(0, CTevChennalDB::Instance()->Count());
    // Every handler came as far as the program, every time: a query, or a line that says why not.
    const int nKinds = 2 * static_cast<int>(kinds.size());
    EXPECT_EQ(2 * nKinds, QueriesAndLines(m_router, log, "FileCreate"));
    EXPECT_EQ(2 * nKinds, QueriesAndLines(m_router, log, "FileDelete"));
    EXPECT_EQ(2 * nKinds, QueriesAndLines(m_router, log, "FileModify"));
    EXPECT_EQ(2 * nKinds, QueriesAndLines(m_router, log, "FileRename"));
    EXPECT_LE(nKinds, QueriesAndLines(m_router, log, "ProcessPipe"));
    EXPECT_EQ(nKinds, QueriesAndLines(m_router, log, "AddAutoRuns"));
    for (const char* pszEvent : {"CreateProcess", "FileCreate", "FileDelete", "FileModify",
                                 "FileRename", "ProcessPipe", "AddAutoRuns"}) {
        EXPECT_LE(1, Queries(m_router, pszEvent)) << pszEvent;
    }
}
