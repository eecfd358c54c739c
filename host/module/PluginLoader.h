// Loads a module and drives it through its operation table.
//
// Threads: the control thread.
// Errors: texts that name the file and what to do.
// Ownership: the router given to Start must live until Unload has returned.
#ifndef HOST_MODULE_PLUGINLOADER_H
#define HOST_MODULE_PLUGINLOADER_H

#include <string>

#include "framework/abi/IMsgRouter.h"
#include "framework/abi/PluginOperationTable.h"

class PluginLoader {
public:
    PluginLoader() = default;
    ~PluginLoader();  // stops and unloads

    PluginLoader(const PluginLoader&) = delete;
    PluginLoader& operator=(const PluginLoader&) = delete;

    // libtevmon.so in the folder of this executable.
    static std::string DefaultPath();

    // Loads the library, checks its four functions and takes the table.
    bool Load(const std::string& strPath, std::string& strError);

    // init, setopt, start.
    void Start(IMsgRouter* pRouter);
    // stop. Waits for the work that the module has in hand.
    void Stop();
    // uninit, then the library is unloaded. Nothing of the module may be called any more.
    void Unload();

private:
    bool TakeFunctions(const std::string& strPath, std::string& strError);

    void* m_pLibrary = nullptr;
    InitializePluginFn m_pfnInitialize = nullptr;
    UninitializePluginFn m_pfnUninitialize = nullptr;
    CreateObjectFn m_pfnCreate = nullptr;
    DestroyObjectFn m_pfnDestroy = nullptr;
    PluginOperationTable* m_pTable = nullptr;
    bool m_bInitialised = false;
    bool m_bStarted = false;
};

#endif
