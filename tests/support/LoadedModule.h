// The built module, loaded and started as a host does it: dlopen, the table, init, setopt, start.
// The router is the test's; waits of the message channel are cut from 5 s to 5 ms.
#ifndef TESTS_SUPPORT_LOADEDMODULE_H
#define TESTS_SUPPORT_LOADEDMODULE_H

#include <string>

#include "framework/abi/IMsgRouter.h"
#include "framework/abi/PluginOperationTable.h"

class LoadedModule {
public:
    LoadedModule(const std::string& strFile, IMsgRouter& router);
    ~LoadedModule();  // stop, uninit, dlclose

    LoadedModule(const LoadedModule&) = delete;
    LoadedModule& operator=(const LoadedModule&) = delete;

    const PluginOperationTable& Table() const { return *m_pTable; }

private:
    void* m_pLibrary;
    PluginOperationTable* m_pTable;
};

// strText with every strFrom replaced.
std::string ReplaceAll(std::string strText, const std::string& strFrom, const std::string& strTo);

// The whole file; "" when it cannot be read.
std::string ReadWholeFile(const std::string& strFile);

// A message of the module with what differs from run to run replaced: strDir by @DIR@, the values
// of file times by TIME, of inodes by INODE.
std::string NormalisedMessage(const std::string& strText, const std::string& strDir);

#endif
