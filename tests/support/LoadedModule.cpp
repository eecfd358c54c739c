#include "tests/support/LoadedModule.h"

#include <dlfcn.h>

#include <fstream>
#include <regex>
#include <sstream>
#include <stdexcept>

#include "framework/base/CThread.h"

namespace {

uint32_t ShortWait(uint32_t nMilliseconds) {
    return nMilliseconds == 5000 ? 5 : nMilliseconds;
}

}  // namespace

LoadedModule::LoadedModule(const std::string& strFile, IMsgRouter& router)
    : m_pLibrary(dlopen(strFile.c_str(), RTLD_NOW | RTLD_LOCAL)) {
    if (m_pLibrary == nullptr) {
        throw std::runtime_error(dlerror());
    }
    CThread::SetWaitHook(ShortWait);
    const auto pfnCreate = reinterpret_cast<CreateObjectFn>(dlsym(m_pLibrary, "CreateObject"));
    m_pTable = static_cast<PluginOperationTable*>(pfnCreate(nullptr));
    (void)m_pTable->pfnInit(nullptr);
    m_pTable->pfnSetOpt(&router);
    (void)m_pTable->pfnStart();
}

LoadedModule::~LoadedModule() {
    (void)m_pTable->pfnStop();
    m_pTable->pfnUninit();
    (void)dlclose(m_pLibrary);
    CThread::SetWaitHook(nullptr);
}

std::string ReplaceAll(std::string strText, const std::string& strFrom, const std::string& strTo) {
    for (size_t n = strText.find(strFrom); n != std::string::npos;
         n = strText.find(strFrom, n + strTo.size())) {
        strText.replace(n, strFrom.size(), strTo);
    }
    return strText;
}

std::string ReadWholeFile(const std::string& strFile) {
    std::ifstream stream(strFile, std::ios::binary);
    std::stringstream text;
    text << stream.rdbuf();
    return text.str();
}

std::string NormalisedMessage(const std::string& strText, const std::string& strDir) {
    static const std::regex time(
        R"re(("hi\.(?:fileatime|filemtime|filectime|gap_time)","value":")[^"]*)re");
    static const std::regex inode(R"re(("hi\.fileinode","value":")[0-9]+)re");
    const std::string strTimeless =
        std::regex_replace(ReplaceAll(strText, strDir, "@DIR@"), time, "$1TIME");
    return std::regex_replace(strTimeless, inode, "$1INODE");
}
