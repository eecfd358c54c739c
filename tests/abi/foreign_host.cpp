// A host of another maker: it includes nothing of ours, knows the library's interface by numbers
// only, and drives the whole road of a launch through it, from the message to the cloud query, to
// the verdict, to the query that is not posted again.
//
// Usage: foreign_host LIBRARY. Works in a directory of its own; exit code 0 when all went as it
// must, 1 with a line on standard output for each thing that did not.
#include <dlfcn.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <typeinfo>
#include <vector>

namespace {

int s_nFailures = 0;

void Check(bool bGood, const char* pszWhat) {
    if (!bGood) {
        ++s_nFailures;
        printf("foreign host: not so: %s\n", pszWhat);
    }
}

// What the router was called with. Calls come from the control thread and from the library's own.
struct Message {
    std::string strTarget;  // 16 bytes
    int64_t nType = 0;
    std::string strText;
};

struct Journal {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::string> calls;
    std::vector<Message> posts;
    std::vector<std::string> logLines;
    void* pReceiver = nullptr;
    int nReserved = 0;

    template <class Condition>
    bool WaitFor(Condition condition) {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, std::chrono::seconds(100), condition);
    }
    void Add(const std::string& strCall) {
        const std::lock_guard<std::mutex> lock(mutex);
        calls.push_back(strCall);
        changed.notify_all();
    }
};

Journal s_journal;

// The router: an object whose first word points at a table of functions. Numbers are taken 64 bits
// wide wherever the interface says so, so that garbage in an upper half would show.
class ForeignRouter {};  // only lends its type's name to the table

void ReservedSlot(void*) {
    const std::lock_guard<std::mutex> lock(s_journal.mutex);
    ++s_journal.nReserved;
}

uint32_t SlotSetIdentity(void*, const void* pGuid) {
    constexpr unsigned char IDENTITY[16] = {0x4d, 0x7b, 0x5d, 0xed, 0x52, 0xcc, 0x59, 0x40,
                                            0x89, 0xc2, 0x14, 0x8a, 0x09, 0x51, 0xbf, 0xff};
    Check(memcmp(pGuid, IDENTITY, 16) == 0, "slot 2 gets the module's identity");
    s_journal.Add("identity");
    return 0xE0010009U;  // results of the control calls are ignored
}

void SlotClose(void*) {
    s_journal.Add("close");
}

uint32_t SlotPost(void*, const void* pTarget, int64_t nType, const void* pData, uint32_t nLength) {
    const std::lock_guard<std::mutex> lock(s_journal.mutex);
    s_journal.posts.push_back({std::string(static_cast<const char*>(pTarget), 16), nType,
                               std::string(static_cast<const char*>(pData), nLength)});
    s_journal.changed.notify_all();
    return 0;
}

uint32_t SlotRegister(void*, int64_t nType, void* pReceiver, int64_t nZero) {
    Check(nZero == 0, "slot 9 gets a 64-bit zero last");
    Check(pReceiver != nullptr, "slot 9 gets a receiver");
    s_journal.Add("register " + std::to_string(nType));
    const std::lock_guard<std::mutex> lock(s_journal.mutex);
    Check(s_journal.pReceiver == nullptr || s_journal.pReceiver == pReceiver,
          "both types are for the same receiver");
    s_journal.pReceiver = pReceiver;
    return 0xE0010009U;
}

uint32_t SlotUnregister(void*, int64_t nType) {
    s_journal.Add("unregister " + std::to_string(nType));
    return 0xE0010009U;
}

uint32_t SlotReply(void*, int64_t, int64_t, const void*, uint32_t, void*) {
    s_journal.Add("reply");
    return 0;
}

uint32_t SlotSendWithCompletion(void*, const void*, int64_t, const void*, uint32_t, void*, int64_t,
                                uint32_t*, int64_t) {
    s_journal.Add("send");
    return 0;
}

template <class Function>
void* Slot(Function* pfn) {
    return reinterpret_cast<void*>(pfn);
}

// Two words stand before a table: the offset to the whole object and its type.
void* s_table[15];
void* s_router[1] = {s_table + 2};

void FillTable() {
    s_table[1] = const_cast<void*>(static_cast<const void*>(&typeid(ForeignRouter)));
    for (int nSlot = 0; nSlot <= 12; ++nSlot) {
        s_table[2 + nSlot] = Slot(&ReservedSlot);
    }
    void** pSlots = s_table + 2;
    pSlots[2] = Slot(&SlotSetIdentity);
    pSlots[3] = Slot(&SlotClose);
    pSlots[4] = Slot(&SlotPost);
    pSlots[9] = Slot(&SlotRegister);
    pSlots[10] = Slot(&SlotUnregister);
    pSlots[11] = Slot(&SlotReply);
    pSlots[12] = Slot(&SlotSendWithCompletion);
}

// Delivers a message on a thread of its own, as a transport does, through slot 2 of the receiver.
void Deliver(int64_t nType, const std::string& strText) {
    std::thread([&] {
        using Receive =
            int64_t (*)(void*, const void*, int64_t, const void*, uint32_t, void*, int64_t);
        void** pSlots = *static_cast<void***>(s_journal.pReceiver);
        const unsigned char sender[16] = {1, 2, 3, 4};
        int nReplyHandle = 0;
        const int64_t nResult = reinterpret_cast<Receive>(pSlots[2])(
            s_journal.pReceiver, sender, nType, strText.data(),
            static_cast<uint32_t>(strText.size()), &nReplyHandle, int64_t{-1});
        Check(nResult == 0, "the receiver returns a 64-bit zero");
    }).join();
}

std::string LaunchOf(const std::string& strProgram) {
    return R"({"param":[{"grup":"cloudquery","context":"cloudad","pid":4711,"cmd":"%s%n --run",)"
           R"("path":")" +
           strProgram + R"("}]})";
}

// The text behind "strKey":" in the query.
std::string TextIn(const std::string& strQuery, const std::string& strKey) {
    const std::string strHead = "\"" + strKey + "\":\"";
    const size_t nStart = strQuery.find(strHead);
    if (nStart == std::string::npos) {
        return "";
    }
    const size_t nText = nStart + strHead.size();
    return strQuery.substr(nText, strQuery.find('"', nText) - nText);
}

[[maybe_unused]] bool IsMapped() {
    std::ifstream maps("/proc/self/maps");
    for (std::string strLine; std::getline(maps, strLine);) {
        if (strLine.find("/libtevmon.so") != std::string::npos) {
            return true;
        }
    }
    return false;
}

// Standard error of the process, line by line into the journal, until it is given back.
class LogReader {
public:
    LogReader() : m_nOldStderr(dup(STDERR_FILENO)) {
        Check(pipe(m_pipe) == 0, "a pipe can be had");
        (void)dup2(m_pipe[1], STDERR_FILENO);
        (void)close(m_pipe[1]);
        m_thread = std::thread([this] { Read(); });
    }
    ~LogReader() {
        (void)dup2(m_nOldStderr, STDERR_FILENO);
        m_thread.join();
        (void)close(m_pipe[0]);
        (void)close(m_nOldStderr);
    }
    LogReader(const LogReader&) = delete;
    LogReader& operator=(const LogReader&) = delete;

private:
    void Read() {
        std::string strText;
        char buffer[4096];
        for (ssize_t nRead = 0; (nRead = read(m_pipe[0], buffer, sizeof(buffer))) > 0;) {
            strText.append(buffer, static_cast<size_t>(nRead));
            for (size_t nEnd = 0; (nEnd = strText.find('\n')) != std::string::npos;) {
                Line(strText.substr(0, nEnd));
                strText.erase(0, nEnd + 1);
            }
        }
    }
    void Line(const std::string& strLine) {
        (void)!write(m_nOldStderr, (strLine + "\n").data(), strLine.size() + 1);
        const std::lock_guard<std::mutex> lock(s_journal.mutex);
        s_journal.logLines.push_back(strLine);
        s_journal.changed.notify_all();
    }

    int m_pipe[2] = {-1, -1};
    const int m_nOldStderr;
    std::thread m_thread;
};

bool LogHas(const std::string& strText) {
    for (const std::string& strLine : s_journal.logLines) {
        if (strLine.find(strText) != std::string::npos) {
            return true;
        }
    }
    return false;
}

// A real program: this one, under another name and with a byte of its own at the end.
std::string CopyOfThisProgram(const std::string& strDir, const std::string& strName) {
    const std::string strPath = strDir + "/" + strName;
    {
        std::ifstream source("/proc/self/exe", std::ios::binary);
        std::ofstream target(strPath, std::ios::binary);
        target << source.rdbuf() << strName;
    }
    Check(chmod(strPath.c_str(), 0755) == 0, "a program can be made");
    return strPath;
}

// The eight entries by number.
struct Library {
    void* pHandle = nullptr;
    void** pEntries = nullptr;

    int32_t Int(int nEntry, void* pArgument = nullptr) const {
        return reinterpret_cast<int32_t (*)(void*)>(pEntries[nEntry])(pArgument);
    }
    void Void(int nEntry, void* pArgument = nullptr) const {
        reinterpret_cast<void (*)(void*)>(pEntries[nEntry])(pArgument);
    }
};

constexpr int INIT = 0, UNINIT = 1, START = 2, STOP = 3, GETSTATUS = 4, EXT6 = 5, SETOPT = 6,
              EXT7 = 7;

bool Load(const char* pszLibrary, Library& library) {
    library.pHandle = dlopen(pszLibrary, RTLD_NOW | RTLD_LOCAL);
    if (library.pHandle == nullptr) {
        printf("foreign host: %s\n", dlerror());
        return false;
    }
    const auto pfnInitialize =
        reinterpret_cast<int (*)(void*)>(dlsym(library.pHandle, "InitializePlugin"));
    const auto pfnCreate =
        reinterpret_cast<void* (*)(void*)>(dlsym(library.pHandle, "CreateObject"));
    if (pfnInitialize == nullptr || pfnCreate == nullptr) {
        printf("foreign host: the exports are not there\n");
        return false;
    }
    Check(pfnInitialize(&library) == 0, "InitializePlugin returns 0");
    library.pEntries = static_cast<void**>(pfnCreate(nullptr));
    Check(pfnCreate(&library) == static_cast<void*>(library.pEntries),
          "CreateObject returns the same table twice");
    return true;
}

void StartLibrary(const Library& library) {
    Check(library.Int(GETSTATUS) == 0, "status 0 before init");
    Check(library.Int(INIT, &s_journal) == 0, "init returns 0");
    Check(library.Int(GETSTATUS) == 1, "status 1 after init");
    library.Void(SETOPT, s_router);
    Check(
        s_journal.calls == std::vector<std::string>{"identity", "register 20002", "register 20003"},
        "setopt sets the identity, then registers 20002, then 20003");
    Check(library.Int(EXT6) == 0 && library.Int(EXT7) == 0, "the extensions return 0");
    Check(library.Int(GETSTATUS) == 1, "status 1 still, after setopt and the extensions");
    Check(library.Int(START) == 0, "start returns 0");
    Check(library.Int(GETSTATUS) == 2, "status 2 after start");
}

// One launch asked about, answered, and not asked about again.
void DriveTheRoad(const std::string& strDir) {
    constexpr unsigned char CLOUD[16] = {0x8e, 0x4d, 0xe5, 0xfb, 0xe6, 0xd8, 0xf8, 0x41,
                                         0xbe, 0x05, 0xa9, 0x4c, 0xe5, 0x46, 0x95, 0x87};
    const std::string strFirst = CopyOfThisProgram(strDir, "first");
    const std::string strSecond = CopyOfThisProgram(strDir, "second");

    Deliver(20002, LaunchOf(strFirst));
    if (!s_journal.WaitFor([] { return !s_journal.posts.empty(); })) {
        Check(false, "a query is posted for the first launch");
        return;
    }
    const Message query = s_journal.posts[0];
    Check(memcmp(query.strTarget.data(), CLOUD, 16) == 0, "the query goes to the cloud endpoint");
    Check(query.nType == 20004, "the query is of type 20004");
    Check(TextIn(query.strText, "msg_type") == "cloudq", "the query's msg_type is cloudq");
    Check(query.strText.find("\"resp_msg_type\":20003") != std::string::npos,
          "the query asks for an answer of type 20003");
    Check(TextIn(query.strText, "path") == strFirst, "the query names the program");
    const std::string strKey = TextIn(query.strText, "context");
    Check(strKey.size() == 72, "the query's context is the SHA-1 and the MD5 of the program");

    Deliver(20003, R"({"msg_type":"cloudqr","param":{"context":")" + strKey +
                       R"(","result":"20","func":"cloudad"}})");
    Deliver(20002, LaunchOf(strFirst));
    Deliver(20002, LaunchOf(strSecond));
    // Messages are taken in their order: the query for the second program comes after the first
    // program's second launch was analysed.
    Check(s_journal.WaitFor([] { return s_journal.posts.size() >= 2; }),
          "a query is posted for the second program");
    Check(s_journal.posts.size() == 2, "no query for the program that has a verdict");
    Check(TextIn(s_journal.posts.back().strText, "path") == strSecond,
          "the second query names the second program");
    Check(s_journal.WaitFor(
              [&] { return LogHas("[CTevPsMonitor] " + strFirst + " in cacho, skip [lanuch]"); }),
          "the log says that the first program is skipped");
}

void StopLibrary(const Library& library) {
    Check(library.Int(STOP) == 0, "stop returns 0");
    Check(library.Int(GETSTATUS) == 3, "status 3 after stop");
    library.Void(UNINIT);
    Check(library.Int(GETSTATUS) == 4, "status 4 after uninit");
    const auto pfnDestroy =
        reinterpret_cast<void (*)(void*, void*)>(dlsym(library.pHandle, "DestroyObject"));
    const auto pfnUninitialize =
        reinterpret_cast<void (*)()>(dlsym(library.pHandle, "UninitializePlugin"));
    pfnDestroy(library.pEntries, nullptr);
    pfnUninitialize();
    Check(library.Int(GETSTATUS) == 4, "status 4 still, after DestroyObject");

    Check(s_journal.calls == std::vector<std::string>{"identity", "register 20002",
                                                      "register 20003", "unregister 20002",
                                                      "unregister 20003", "close"},
          "the router's other slots are called as they must, none twice, no reply, no send");
    Check(s_journal.nReserved == 0, "no reserved slot and no destructor is called");
#ifndef __SANITIZE_THREAD__  // it runs a library's atexit routines too late to unload it
    Check(dlclose(library.pHandle) == 0, "dlclose returns 0");
    Check(!IsMapped(), "the library has left memory");
#endif
}

}  // namespace

int main(int nArguments, char** pArguments) {
    if (nArguments != 2) {
        printf("usage: foreign_host LIBRARY\n");
        return 2;
    }
    char* pszLibrary = realpath(pArguments[1], nullptr);
    const char* pszTemporary = getenv("TMPDIR");
    std::string strDir = std::string(pszTemporary != nullptr ? pszTemporary : "/tmp") + "/XXXXXX";
    if (pszLibrary == nullptr || mkdtemp(strDir.data()) == nullptr) {
        printf("foreign host: no library or no directory to work in\n");
        return 2;
    }
    const std::string strRun = strDir + "/run";
    for (const char* pszName : {"/run", "/data", "/data/db"}) {
        Check(mkdir((strDir + pszName).c_str(), 0700) == 0, "a directory can be made");
    }
    Check(chdir(strRun.c_str()) == 0, "the directory can be entered");
    (void)setenv("HOSTFRAMEWORK_LOG_LEVEL", "1", 1);
    FillTable();
    {
        const LogReader log;
        Library library;
        if (Load(pszLibrary, library)) {
            StartLibrary(library);
            DriveTheRoad(strRun);
            StopLibrary(library);
        } else {
            ++s_nFailures;
        }
    }
    free(pszLibrary);
    for (const char* pszName :
         {"/run/first", "/run/second", "/data/db/tevchennaldb.db", "/data/db/tevcloudcacho.db"}) {
        Check(unlink((strDir + pszName).c_str()) == 0, "each file stands where it must");
    }
    for (const char* pszName : {"/data/db", "/data", "/run", ""}) {
        Check(rmdir((strDir + pszName).c_str()) == 0, "nothing else was left behind");
    }
    printf("foreign host: %d failures\n", s_nFailures);
    return s_nFailures == 0 ? 0 : 1;
}
