// The analysis of launches without the two things that are measured elsewhere, digests and SQL. The
// program answers utils::getMD5AndSHA1 itself (with constant digests) and, by the linker's --wrap,
// GetLivingRecord (with "unknown"), so everything else that a launch costs is the
// module's own code as it is shipped. Two references:
//   - jsoncpp alone: parses the same message, makes the same event and query from constant texts
//     and writes it, with nothing looked up, no status and no times;
//   - jsoncpp and the same system work: in addition the two looks at the file and the three time
//     texts that each query has to hold, made by direct calls.
// A third pair shows how much of the road is work that jsoncpp does not do.
#include "tevmon/core/CTevPsMonitor.h"

#include <json/reader.h>
#include <json/writer.h>
#include <sys/stat.h>
#include <time.h>

#include <string>

#include "bench/support/Ratios.h"
#include "bench/tevmon/core/TakingRouter.h"
#include "framework/base/Base64Util.h"
#include "framework/digest/FileHash.h"
#include "public/pluginhelper/CMsgRouterHolder.h"
#include "tests/support/FakeUsers.h"
#include "tests/support/TestDir.h"
#include "tevmon/core/CTevCloudCachoMgr.h"

namespace {

const char MD5[] = "900150983cd24fb0d6963f7d28e17f72";
const char SHA1[] = "a9993e364706816aba3e25717850c26c9cd0d89d";

}  // namespace

bool utils::getMD5AndSHA1(const std::string& /*strPath*/, std::string& strMd5,
                          std::string& strSha1) {
    strMd5 = MD5;
    strSha1 = SHA1;
    return true;
}

// What the linker puts in the place of GetLivingRecord.
bool WrappedGetLivingRecord(const std::string&, CachoRecord&) __asm__(
    "__wrap__Z15GetLivingRecordRKNSt7__cxx1112basic_stringIcSt11char_"
    "traitsIcESaIcEEER11CachoRecord");
bool WrappedGetLivingRecord(const std::string&, CachoRecord&) {
    return false;
}

namespace {

class Scene {
public:
    Scene()
        : m_strProgram(m_dir.WriteFile("usr/bin/tool", "abc", 0755)),
          m_users({{"alice", "/home/"}}) {
        CMsgRouterHolder::Instance()->SetRouter(&m_router);
        CTevCloudCachoMgr::Instance();
    }
    ~Scene() { CMsgRouterHolder::Instance()->SetRouter(nullptr); }

    // As a host reports launches; the first element carries the tags.
    std::string Message(int nElements) const {
        std::string strMessage = R"({"msg_type":"hips","param":[)";
        for (int i = 0; i < nElements; ++i) {
            strMessage += i == 0 ? R"({"grup":"cloudquery","context":"cloudad",)" : ",{";
            strMessage += R"("path":")" + m_strProgram + R"(","cmd":"tool --verbose --output=)" +
                          R"(/tmp/result-of-this-run.txt input.txt","pid":)" +
                          std::to_string(4000 + i) + "}";
        }
        return strMessage + "]}";
    }
    const std::string& Last() const { return m_router.strLast; }
    void Take(const std::string& strText) {
        m_router.Post(nullptr, 0, strText.data(), static_cast<uint32_t>(strText.size()));
    }

private:
    TestDir m_dir;
    std::string m_strProgram;
    FakeUsers m_users;
    TakingRouter m_router;
};

Scene& TheScene() {
    static Scene s_scene;
    return s_scene;
}

std::string TimeText(const timespec& time) {
    tm parts = {};
    localtime_r(&time.tv_sec, &parts);
    char text[64];
    const size_t nLength = strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S", &parts);
    return std::string(text, nLength) + "." + std::to_string(time.tv_nsec);
}

struct Texts {
    std::string strMode = "100755";
    std::string strUid = "0";
    std::string strGid = "0";
    std::string strInode = "1234567";
    std::string strAtime = "2031-05-17 08:30:00.123456789";
    std::string strMtime = "2031-05-17 08:30:00.123456789";
    std::string strCtime = "2031-05-17 08:30:00.123456789";
};

Texts TextsOf(const std::string& strPath) {
    struct stat status = {};
    if (stat(strPath.c_str(), &status) != 0 || stat(strPath.c_str(), &status) != 0) {
        return {};
    }
    char mode[16];
    snprintf(mode, sizeof(mode), "%o", status.st_mode);
    return {mode,
            std::to_string(status.st_uid),
            std::to_string(status.st_gid),
            std::to_string(status.st_ino),
            TimeText(status.st_atim),
            TimeText(status.st_mtim),
            TimeText(status.st_ctim)};
}

void Item(Json::Value& jsonEvent, const char* pszKey, const std::string& strValue) {
    Json::Value& jsonItem = jsonEvent.append(Json::Value(Json::objectValue));
    jsonItem["key"] = pszKey;
    jsonItem["value"] = strValue;
}

std::string Query(const Json::Value& jsonElement, bool bSystem) {
    const std::string strPath = jsonElement["path"].asString();
    const std::string strCmd = jsonElement["cmd"].asString();
    const Texts texts = bSystem ? TextsOf(strPath) : Texts();
    Json::Value jsonMessage;
    Json::Value& jsonParam = jsonMessage["param"];
    Json::Value& jsonEvent = jsonParam["ext"];
    Item(jsonEvent, "hi.event_name", "CreateProcess");
    Item(jsonEvent, "hi.filemode", texts.strMode);
    Item(jsonEvent, "hi.fileuid", texts.strUid);
    Item(jsonEvent, "hi.filegid", texts.strGid);
    Item(jsonEvent, "hi.fileinode", texts.strInode);
    Item(jsonEvent, "hi.fileatime", texts.strAtime);
    Item(jsonEvent, "hi.filemtime", texts.strMtime);
    Item(jsonEvent, "hi.filectime", texts.strCtime);
    Item(jsonEvent, "hi.process_id", std::to_string(jsonElement["pid"].asInt()));
    Item(jsonEvent, "hi.process_path", strPath);
    benchmark::DoNotOptimize(strCmd);
    Item(jsonEvent, "hi.type", "0");
    jsonParam["path"] = strPath;
    jsonParam["path_type"] = 0;
    jsonParam["event_id_key"] = "adid";
    jsonParam["event_id_value"] = "10001";
    jsonParam["func"] = "cloudad";
    jsonParam["context"] = std::string(SHA1) + MD5;
    jsonMessage["msg_type"] = "cloudq";
    jsonMessage["resp_msg_type"] = 20003;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"  // the module's own writer
    std::string strText = Json::FastWriter().write(jsonMessage);
#pragma GCC diagnostic pop
    strText.pop_back();
    return strText;
}

void ByJsoncpp(const std::string& strMessage, bool bSystem) {
    Json::Value jsonRoot;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"  // the module's own reader
    Json::Reader reader;
#pragma GCC diagnostic pop
    reader.parse(strMessage, jsonRoot, true);
    for (const Json::Value& jsonElement : jsonRoot["param"]) {
        TheScene().Take(Query(jsonElement, bSystem));
    }
}

Comparison::Side Module(int nElements) {
    return [=](benchmark::State& state) {
        const std::string strMessage = TheScene().Message(nElements);
        for (auto _ : state) {
            benchmark::DoNotOptimize(CTevPsMonitor::Instance()->Run("", strMessage));
        }
        const std::string strOurs = TheScene().Last();
        ByJsoncpp(strMessage, true);
        if (strOurs.empty() || strOurs != TheScene().Last()) {
            state.SkipWithError("the two sides disagree");
        }
    };
}

Comparison::Side Tens(int nMessages) {
    return [=](benchmark::State& state) {
        const std::string strMessage = TheScene().Message(10);
        for (auto _ : state) {
            for (int i = 0; i < nMessages; ++i) {
                benchmark::DoNotOptimize(CTevPsMonitor::Instance()->Run("", strMessage));
            }
        }
    };
}

Comparison::Side Jsoncpp(int nElements, bool bSystem) {
    return [=](benchmark::State& state) {
        const std::string strMessage = TheScene().Message(nElements);
        for (auto _ : state) {
            ByJsoncpp(strMessage, bSystem);
        }
    };
}

// Per element, against the same in messages of ten.
bool Batch(const std::string& strElements, int nElements) {
    return Compare({"launch, per element: " + strElements + " per message : 10", 1.15,
                    Module(nElements), Tens(nElements / 10), nElements});
}

const bool REGISTERED =
    Compare({"launch : jsoncpp and the same system work, 1 per message", 1.05, Module(1),
             Jsoncpp(1, true)}) &&
    Compare({"launch : jsoncpp and the same system work, 100 per message", 1.05, Module(100),
             Jsoncpp(100, true), 100}) &&
    Compare({"launch : jsoncpp alone, 1 per message", 1.05, Module(1), Jsoncpp(1, false)}) &&
    Compare(
        {"launch : jsoncpp alone, 100 per message", 1.05, Module(100), Jsoncpp(100, false), 100}) &&
    Compare({"jsoncpp with the system work of a launch : without", 0, Jsoncpp(100, true),
             Jsoncpp(100, false), 100}) &&
    Batch("100", 100) && Batch("1,000", 1000);

}  // namespace
