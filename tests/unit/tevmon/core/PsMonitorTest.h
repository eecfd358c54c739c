// What the tests of CTevPsMonitor share.
#ifndef TESTS_UNIT_TEVMON_CORE_PSMONITORTEST_H
#define TESTS_UNIT_TEVMON_CORE_PSMONITORTEST_H

#include <gtest/gtest.h>
#include <json/reader.h>
#include <sys/stat.h>

#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "public/pluginhelper/CMsgRouterHolder.h"
#include "tests/support/FakeRouter.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestDir.h"
#include "tests/support/TimeZone.h"
#include "tests/support/trace/CallTrace.h"
#include "tests/support/trace/FakeFiles.h"
#include "tevmon/core/CTevCloudCachoMgr.h"
#include "tevmon/core/CTevPsMonitor.h"

// Of a file that holds "abc": the SHA-1, then the MD5.
inline constexpr char ABC_KEY[] =
    "a9993e364706816aba3e25717850c26c9cd0d89d900150983cd24fb0d6963f7d28e17f72";

class PsRouter : public FakeRouter {
public:
    uint32_t Post(const Guid* pTarget, int64_t nMsgType, const void* pData,
                  uint32_t nLength) override {
        CallTrace::Note("post");
        if (bThrowOnce) {
            bThrowOnce = false;
            throw std::runtime_error("a router that throws");
        }
        return FakeRouter::Post(pTarget, nMsgType, pData, nLength);
    }

    bool bThrowOnce = false;
};

// {"path":"<path>"<more>}
inline std::string Launch(const std::string& strPath, const std::string& strMore = "") {
    return R"({"path":")" + strPath + "\"" + strMore + "}";
}

inline std::string Message(const std::string& strElements) {
    return R"({"msg_type":"hips","param":[)" + strElements + "]}";
}

// /opt/tool is a program that holds "abc"; what the test's directory holds is real. The singletons
// live as long as the process; each test runs in a process of its own.
class CTevPsMonitorTest : public testing::Test {
protected:
    CTevPsMonitorTest() : m_zone("UTC0"), m_strReal(m_dir.WriteFile("program", "abc", 0755)) {
        m_files.Redirect("/opt/tool", m_strReal);
        CMsgRouterHolder::Instance()->SetRouter(&m_router);
    }
    ~CTevPsMonitorTest() override { CMsgRouterHolder::Instance()->SetRouter(nullptr); }

    static bool Run(const std::string& strMessage) {
        return CTevPsMonitor::Instance()->Run("", strMessage);
    }

    // The message posted at nIndex.
    Json::Value Sent(size_t nIndex = 0) const {
        const std::vector<SentMessage> posts = m_router.Posts();
        Json::Value jsonSent;
        if (nIndex < posts.size()) {
            Json::CharReaderBuilder builder;
            std::istringstream stream(posts[nIndex].strData);
            std::string strErrors;
            EXPECT_TRUE(Json::parseFromStream(builder, stream, &jsonSent, &strErrors)) << strErrors;
        }
        return jsonSent;
    }
    std::string SentPath(size_t nIndex = 0) const {
        return Sent(nIndex)["param"]["path"].asString();
    }
    // The value of an item of the event posted at nIndex.
    std::string Item(const std::string& strKey, size_t nIndex = 0) const {
        const Json::Value jsonSent = Sent(nIndex);
        for (const Json::Value& jsonItem : jsonSent["param"]["ext"]) {
            if (jsonItem["key"].asString() == strKey) {
                return jsonItem["value"].asString();
            }
        }
        return "no such item";
    }
    // A status with a literal for whatever a query says of it.
    static struct stat Status() {
        struct stat status = {};
        status.st_mode = S_IFREG | 0755;
        status.st_uid = 1001;
        status.st_gid = 1002;
        status.st_ino = 4711;
        status.st_atim = {1580457909, 5};
        status.st_mtim = {1580457910, 123456789};
        status.st_ctim = {1580457911, 0};
        return status;
    }
    void Verdict(int32_t nLevel) {
        ASSERT_TRUE(CTevCloudCachoMgr::Instance()->Record(ABC_KEY, nLevel, -1, 5, ""));
        m_log.Clear();
    }

    const TestDir m_dir;
    const TimeZone m_zone;
    FakeFiles m_files;
    LogCapture m_log;
    PsRouter m_router;
    const std::string m_strReal;
};

#endif
