#include "tests/support/trace/CallTrace.h"

#include <dlfcn.h>
#include <sqlite3.h>
#include <time.h>

#include <atomic>

#include "framework/base/Base64Util.h"
#include "tests/support/trace/SqlTrace.h"

namespace {

std::atomic<CallTrace*> g_pTrace{nullptr};

// The definition that this program's own stands before.
template <class Function>
Function Next(const char* pszSymbol) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, pszSymbol));
}

bool SameLibrary(const void* pFirst, const void* pSecond) {
    Dl_info first = {};
    Dl_info second = {};
    return dladdr(pFirst, &first) != 0 && dladdr(pSecond, &second) != 0 &&
           first.dli_fbase == second.dli_fbase;
}

}  // namespace

CallTrace::CallTrace() {
    g_pTrace = this;
}

CallTrace::~CallTrace() {
    g_pTrace = nullptr;
}

std::vector<std::string> CallTrace::Calls() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_calls;
}

std::vector<std::string> CallTrace::Calls(const std::string& strPrefix) const {
    std::vector<std::string> found;
    for (const std::string& strCall : Calls()) {
        if (strCall.compare(0, strPrefix.size(), strPrefix) == 0) {
            found.push_back(strCall);
        }
    }
    return found;
}

void CallTrace::Clear() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_calls.clear();
}

void CallTrace::Note(const char* pszCall, std::string_view argument) {
    CallTrace* pTrace = g_pTrace;
    if (pTrace != nullptr) {
        const std::lock_guard<std::mutex> lock(pTrace->m_mutex);
        pTrace->m_calls.emplace_back(pszCall) += argument;
    }
}

// These stand before the libraries' own, for this program and every library it loads.
extern "C" __attribute__((visibility("default"))) tm* localtime_r(const time_t* pTime,
                                                                  tm* pResult) noexcept {
    static const auto pfnNext = Next<tm* (*)(const time_t*, tm*)>("localtime_r");
    CallTrace::Note("localtime_r ", std::to_string(*pTime));  // no piece of memory
    return pfnNext(pTime, pResult);
}

extern "C" __attribute__((visibility("default"))) int sqlite3_prepare_v2(sqlite3* pDB,
                                                                         const char* pszStatement,
                                                                         int nBytes,
                                                                         sqlite3_stmt** ppStatement,
                                                                         const char** ppszTail) {
    static const auto pfnNext = Next<decltype(&sqlite3_prepare_v2)>("sqlite3_prepare_v2");
    // SQLite prepares statements of its own to read the schema; they are not noted.
    if (!SameLibrary(__builtin_return_address(0), reinterpret_cast<void*>(pfnNext))) {
        CallTrace::Note("sql ", pszStatement);
        SqlTrace::Note(pszStatement);
    }
    return pfnNext(pDB, pszStatement, nBytes, ppStatement, ppszTail);
}

std::string Base64Util::Base64Encode(const std::string& strData) {
    static const auto pfnNext = Next<std::string (*)(const std::string&)>(
        "_ZN10Base64Util12Base64EncodeERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE");
    CallTrace::Note("encode ", strData);
    return pfnNext(strData);
}
