#include "host/module/PluginLoader.h"

#include <dlfcn.h>

#include <filesystem>
#include <system_error>

namespace {

const char* const REMEDY = "name the module with --module";

template <class Function>
bool TakeFunction(void* pLibrary, const char* pszName, Function& pfnFunction,
                  const std::string& strPath, std::string& strError) {
    pfnFunction = reinterpret_cast<Function>(dlsym(pLibrary, pszName));
    if (pfnFunction == nullptr) {
        strError = strPath + " is not a module: it has no function " + pszName + "; " + REMEDY;
    }
    return pfnFunction != nullptr;
}

}  // namespace

PluginLoader::~PluginLoader() {
    Stop();
    Unload();
}

std::string PluginLoader::DefaultPath() {
    std::error_code error;
    const std::string strSelf = std::filesystem::read_symlink("/proc/self/exe", error).string();
    const size_t nSlash = strSelf.rfind('/');
    return nSlash == std::string::npos ? "./libtevmon.so"
                                       : strSelf.substr(0, nSlash + 1) + "libtevmon.so";
}

bool PluginLoader::Load(const std::string& strPath, std::string& strError) {
    // Without a "/" dlopen would search the system's folders.
    const std::string strFile = strPath.find('/') == std::string::npos ? "./" + strPath : strPath;
    m_pLibrary = dlopen(strFile.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (m_pLibrary == nullptr) {
        const char* pszReason = dlerror();
        strError = "cannot load the module " + strFile + ": " +
                   (pszReason == nullptr ? "no reason given" : pszReason) + "; " + REMEDY;
        return false;
    }
    if (!TakeFunctions(strFile, strError)) {
        dlclose(m_pLibrary);
        m_pLibrary = nullptr;
        return false;
    }
    return true;
}

bool PluginLoader::TakeFunctions(const std::string& strPath, std::string& strError) {
    if (!TakeFunction(m_pLibrary, "InitializePlugin", m_pfnInitialize, strPath, strError) ||
        !TakeFunction(m_pLibrary, "UninitializePlugin", m_pfnUninitialize, strPath, strError) ||
        !TakeFunction(m_pLibrary, "CreateObject", m_pfnCreate, strPath, strError) ||
        !TakeFunction(m_pLibrary, "DestroyObject", m_pfnDestroy, strPath, strError)) {
        return false;
    }
    m_pTable = static_cast<PluginOperationTable*>(m_pfnCreate(nullptr));
    const bool bWhole = m_pTable != nullptr && m_pTable->pfnInit != nullptr &&
                        m_pTable->pfnUninit != nullptr && m_pTable->pfnStart != nullptr &&
                        m_pTable->pfnStop != nullptr && m_pTable->pfnSetOpt != nullptr;
    if (!bWhole) {
        strError = strPath + " is not a module: its operation table is not filled; " + REMEDY;
        m_pTable = nullptr;
    }
    return bWhole;
}

void PluginLoader::Start(IMsgRouter* pRouter) {
    if (m_pTable == nullptr || m_bInitialised) {
        return;
    }
    // The results say nothing: they are 0 whatever happened inside.
    (void)m_pfnInitialize(nullptr);
    (void)m_pTable->pfnInit(nullptr);
    m_bInitialised = true;
    m_pTable->pfnSetOpt(pRouter);
    (void)m_pTable->pfnStart();
    m_bStarted = true;
}

void PluginLoader::Stop() {
    if (m_bStarted) {
        m_bStarted = false;
        (void)m_pTable->pfnStop();
    }
}

void PluginLoader::Unload() {
    if (m_bInitialised) {
        m_bInitialised = false;
        m_pTable->pfnUninit();
        m_pfnDestroy(m_pTable, nullptr);
        m_pfnUninitialize();
    }
    if (m_pLibrary != nullptr) {
        m_pTable = nullptr;
        dlclose(m_pLibrary);
        m_pLibrary = nullptr;
    }
}
