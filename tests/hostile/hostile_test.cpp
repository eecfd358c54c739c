// Messages and keys that mean harm, through the whole road.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iostream>

#include "public/pluginhelper/CMsgRouterHolder.h"
#include "public/pluginhelper/JsonReaders.h"
#include "tests/hostile/Generator.h"
#include "tests/hostile/Options.h"
#include "tests/support/FakeRouter.h"
#include "tests/support/StdoutCapture.h"
#include "tests/support/TestDir.h"
#include "tests/support/trace/OtherConnection.h"
#include "tevmon/core/CTevChennalMgr.h"
#include "tevmon/core/CTevCloudCachoMgr.h"
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
            dir.WriteFile("program", "a program"),
            dir.WriteFile("empty", "")};
}

void Receive(CTevMonIpcRecever& recever, int64_t nMsgType, const std::string& strBody) {
    const Guid sender = {};
    (void)recever.ReceiveCallback(&sender, nMsgType, strBody.data(),
                                  static_cast<uint32_t>(strBody.size()), nullptr, 0);
}

class HostileTest : public testing::Test {
protected:
    const TestDir m_dir;
    FakeRouter m_router;
};

Texts FilesBelow(const std::string& strDir) {
    Texts files;
    for (const auto& entry : fs::recursive_directory_iterator(strDir)) {
        files.push_back(entry.path().filename().string());
    }
    std::sort(files.begin(), files.end());
    return files;
}

}  // namespace

TEST_F(HostileTest, EveryMessageIsCountedAnalysedAndGone) {
    const Texts kinds = MakeKinds(m_dir);
    Generator generator(static_cast<uint32_t>(g_options.nSeed), kinds);
    CMsgRouterHolder::Instance()->SetRouter(&m_router);
    CTevMonIpcRecever recever;
    Channel channel;
    CTevChennalDB* pStore = CTevChennalDB::Instance();
    std::chrono::nanoseconds longest(0);

    for (long i = 0; i < g_options.nMessages; ++i) {
        long nQueued = 0;
        const std::string strBody = generator.Message(nQueued);
        const auto begin = std::chrono::steady_clock::now();
        Receive(recever, 20002, strBody);
        Json::Value jsonRoot;
        if (!ParseJsonText(strBody, jsonRoot)) {
            nQueued = 0;
        }
        ASSERT_EQ(nQueued, pStore->Count()) << "message " << i << ": " << strBody.substr(0, 2000);
        channel.Drain();
        ASSERT_EQ(0, pStore->Count()) << "message " << i << ": " << strBody.substr(0, 2000);
        longest =
            std::max<std::chrono::nanoseconds>(longest, std::chrono::steady_clock::now() - begin);
    }

    std::cout << "messages: " << g_options.nMessages << " of seed " << g_options.nSeed
              << ", longest " << std::chrono::duration<double>(longest).count() << " s\n";
    EXPECT_LT(longest, std::chrono::seconds(3));
    EXPECT_FALSE(m_router.Posts().empty());
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
    const std::string strRows =
        "select vkey,level,tmcreate,tminternal,detail,mid from cachotable "
        "where vkey in('known','other') order by vkey";
    const Texts rows = db.Rows(strRows);
    ASSERT_EQ(2u, rows.size());

    for (long i = 0; i < g_options.nKeys; ++i) {
        CachoRecord record;
        record.key = generator.Key();
        record.nLevel = 10;
        long nBefore = 0;
        long nAfter = 0;
        {
            const StdoutCapture capture;
            nBefore = store.Count();
            const int nInsert = store.Insert(record);
            nAfter = store.Count() - (nInsert == 0 ? 1 : 0);
            (void)store.Update(record);
            CachoRecord found;
            (void)store.Select(record.key, found);
            if (record.key != "known" && record.key != "other") {
                store.Lock();
                (void)store.Delete(record.key);
                store.Unlock();
            }
        }
        ASSERT_EQ(nBefore, nAfter) << "key " << i << ": " << record.key;
        ASSERT_EQ(rows, db.Rows(strRows)) << "key " << i << ": " << record.key;
        if (i % 500 == 0) {
            (void)db.Exec("delete from cachotable where vkey not in('known','other')");
            ASSERT_EQ(files, FilesBelow(m_dir.Path())) << "key " << i;
        }
    }

    EXPECT_EQ(files, FilesBelow(m_dir.Path()));
    EXPECT_EQ(Texts{"0"}, db.Rows("pragma user_version"));
    EXPECT_EQ(Texts{"ok"}, db.Rows("pragma integrity_check"));
    std::cout << "keys: " << g_options.nKeys << " of seed " << g_options.nSeed << "\n";
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
    const auto begin = std::chrono::steady_clock::now();
    Texts lines;

    {
        const StdoutCapture capture;
        EXPECT_TRUE(pCache->Record(strKey, 70, -1, 5, ""));
        lines = capture.Lines();
    }

    // A second for the lookup, a second for the insert; each of the 300 tries says what happened.
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
    EXPECT_LE(300u, lines.size());
    CachoRecord found;
    EXPECT_TRUE(pCache->Record("later", 70, -1, 5, ""));
    EXPECT_TRUE(pCache->GetRecord("later", found));
}

// path_kinds.py runs this under a trace of system calls.
TEST_F(HostileTest, EveryKindOfPathIsLookedAtByEveryHashingCaller) {
    const Texts kinds = MakeKinds(m_dir);
    CMsgRouterHolder::Instance()->SetRouter(&m_router);
    CTevMonIpcRecever recever;
    Channel channel;

    for (const std::string& strPath : kinds) {
        const auto begin = std::chrono::steady_clock::now();
        const std::string strHead = R"({"param":[{"grup":"cloudquery","context":"cloud)";
        Receive(recever, 20002,
                strHead + R"(ad","cmd":"bash )" + strPath + R"(","path":")" + strPath + R"("}]})");
        for (const char* pszOperation : {"create", "remove", "rename", "write"}) {
            for (const std::string& strFile :
                 Texts{"/etc/cron.d/a", strPath, "/usr/lib/systemd/system/a.service"}) {
                Receive(recever, 20002,
                        strHead + R"(fd","exe_path":")" + strPath + R"(","path":")" + strFile +
                            R"(","optertion":")" + pszOperation + R"("}]})");
            }
        }
        channel.Drain();
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2)) << strPath;
    }

    EXPECT_EQ(0, CTevChennalDB::Instance()->Count());
}
