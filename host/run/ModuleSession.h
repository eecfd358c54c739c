// The module loaded, between its router, this host's cloud and what is read of its log and output.
//
// Threads: the control thread.
// Errors: Load's text names what is wrong.
// Ownership: the service and the observer must outlive it.
#ifndef HOST_RUN_MODULESESSION_H
#define HOST_RUN_MODULESESSION_H

#include <memory>
#include <string>

#include "host/base/HostOptions.h"
#include "host/cloud/AnswerTracker.h"
#include "host/cloud/CloudEndpoint.h"
#include "host/module/ModuleLog.h"
#include "host/module/ModuleStdout.h"
#include "host/module/PluginLoader.h"
#include "host/run/JournalObservers.h"
#include "host/transport/Router.h"
#include "host/verdict/VerdictService.h"

class ModuleSession {
public:
    // Reads the cache while nobody works with it, and the module's output from now on.
    ModuleSession(const HostOptions& options, const VerdictService& service,
                  ModuleObserver& observer);

    ModuleSession(const ModuleSession&) = delete;
    ModuleSession& operator=(const ModuleSession&) = delete;

    bool Load(std::string& strError);
    const std::string& File() const { return m_strFile; }

    void Start() { m_loader.Start(&m_router); }
    // Stops and unloads the module, when what is under way has ended or some time is over.
    void End();

    Router& MessageRouter() { return m_router; }

private:
    const std::string m_strFile;
    AnswerTracker m_keys;
    ModuleLog m_log;
    ModuleStdout m_printed;
    Router m_router;
    CloudEndpoint m_cloud;
    PluginLoader m_loader;  // goes before the router
};

#endif
