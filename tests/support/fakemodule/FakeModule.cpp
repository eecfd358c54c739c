// A module as small as one can be, for the tests of the host. It keeps nothing in databases: a
// message of events is read when it comes, and every element with a "path" becomes a query
// at once, with the path repeated to 72 characters of hexadecimal as its key.
//
// What happens to it stands in the file "calls" of the current directory, one line each: the
// operations of the table, "event <body>", "answer <body>". The chatty one also prints more than a
// pipe holds.
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>

#include <json/reader.h>
#include <json/value.h>
#include <json/writer.h>

#include "framework/abi/IMsgRouter.h"
#include "framework/abi/MsgTypes.h"
#include "framework/abi/PluginOperationTable.h"

#define FAKEMODULE_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

const Guid CLOUD = {0xFBE54D8E, 0xD8E6, 0x41F8, {0xBE, 0x05, 0xA9, 0x4C, 0xE5, 0x46, 0x95, 0x87}};

std::mutex g_mutex;
IMsgRouter* g_pRouter = nullptr;

void Note(const std::string& strLine) {
    const std::lock_guard<std::mutex> lock(g_mutex);
    if (std::FILE* const pFile = std::fopen("calls", "a")) {
        std::fprintf(pFile, "%s\n", strLine.c_str());
        std::fclose(pFile);
    }
}

std::string KeyOf(const std::string& strPath) {
    static const char DIGITS[] = "0123456789abcdef";
    std::string strKey;
    for (size_t i = 0; strKey.size() < 72; ++i) {
        strKey += DIGITS[static_cast<unsigned char>(strPath[i % strPath.size()]) & 15];
    }
    return strKey;
}

void Query(const std::string& strPath) {
    Json::Value jsonQuery;
    jsonQuery["msg_type"] = "cloudq";
    jsonQuery["param"]["path"] = strPath;
    jsonQuery["param"]["func"] = "cloudad";
    jsonQuery["param"]["context"] = KeyOf(strPath);
    const std::string strBody = Json::writeString(Json::StreamWriterBuilder(), jsonQuery);
    (void)g_pRouter->Post(&CLOUD, MSG_TYPE_CLOUD_QUERY, strBody.data(),
                          static_cast<uint32_t>(strBody.size()));
}

class Receiver : public IMRReceiveComplete {
public:
    int64_t ReceiveCallback(const Guid* /*pSender*/, int64_t nMsgType, const void* pData,
                            uint32_t nLength, void* /*pReplyHandle*/, int64_t /*nExtra*/) override {
        const std::string strBody(static_cast<const char*>(pData), nLength);
        Note((nMsgType == MSG_TYPE_HIPS_EVENT ? "event " : "answer ") + strBody);
        Json::Value jsonRoot;
        const Json::CharReaderBuilder builder;
        const std::unique_ptr<Json::CharReader> pReader(builder.newCharReader());
        if (nMsgType != MSG_TYPE_HIPS_EVENT ||
            !pReader->parse(strBody.data(), strBody.data() + nLength, &jsonRoot, nullptr)) {
            return 0;
        }
        for (const Json::Value& jsonElement : jsonRoot["param"]) {
            if (jsonElement.isMember("path")) {
                Query(jsonElement["path"].asString());
            }
        }
        return 0;
    }
};

Receiver g_receiver;

int32_t Init(void* /*pArgument*/) {
    // A host's standard output is not the module's: this must not reach its reader.
    std::printf("printed by the module\n");
#ifdef FAKEMODULE_CHATTY
    for (int i = 0; i < 30000; ++i) {
        std::printf("database is locked\n%s", i % 300 == 0 ? "cannot commit\n" : "");
    }
#endif
    std::fflush(stdout);
    Note("init");
    return 0;
}

void Uninit() {
    Note("uninit");
    (void)g_pRouter->UnregisterReceiver(MSG_TYPE_HIPS_EVENT);
    (void)g_pRouter->UnregisterReceiver(MSG_TYPE_CLOUD_RESULT);
    g_pRouter->Close();
}

int32_t Start() {
    Note("start");
    return 0;
}

int32_t Stop() {
    Note("stop");
    return 0;
}

int32_t Nothing(void* /*pArgument*/) {
    return 0;
}
int32_t Status() {
    return 0;
}

void SetOpt(void* pRouter) {
    Note("setopt");
    g_pRouter = static_cast<IMsgRouter*>(pRouter);
    (void)g_pRouter->RegisterReceiver(MSG_TYPE_HIPS_EVENT, &g_receiver, 0);
    (void)g_pRouter->RegisterReceiver(MSG_TYPE_CLOUD_RESULT, &g_receiver, 0);
}

#ifdef FAKEMODULE_EMPTY_TABLE
constexpr bool FILLED = false;
#else
constexpr bool FILLED = true;
#endif
PluginOperationTable g_table = {Init,   Uninit, FILLED ? Start : nullptr, Stop, Status, Nothing,
                                SetOpt, Nothing};

}  // namespace

FAKEMODULE_EXPORT int InitializePlugin(void* /*pArgument*/) {
    return 0;
}
FAKEMODULE_EXPORT void UninitializePlugin() {}
FAKEMODULE_EXPORT void* CreateObject(void* /*pArgument*/) {
    return &g_table;
}
#ifndef FAKEMODULE_LACKS_FUNCTION
FAKEMODULE_EXPORT void DestroyObject(void* /*pTable*/, void* /*pArgument*/) {}
#endif
