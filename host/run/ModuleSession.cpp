#include "host/run/ModuleSession.h"

#include <chrono>
#include <thread>

#include "framework/abi/MsgTypes.h"
#include "host/transport/EndpointIds.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds LAST_ANSWERS(2000);  // for messages under way when the module stopped
constexpr milliseconds ROUTER_LOOK(20);     // between two looks at the router

}  // namespace

ModuleSession::ModuleSession(const HostOptions& options, const VerdictService& service,
                             ModuleObserver& observer)
    : m_strFile(options.strModule.empty() ? PluginLoader::DefaultPath() : options.strModule),
      m_keys(options.CacheDatabase()),
      m_log(observer, options.nLogLevel),
      m_printed([&observer](const std::string& strLine) { observer.OnPrinted(strLine); }),
      m_cloud(m_router, service, m_keys, observer) {
    (void)m_printed.Begin();  // without it, what the module prints goes to standard error unread
    m_router.AddEndpoint(GuidFromText(CLOUD_ENDPOINT), &m_cloud);
    m_router.AddEndpoint(GuidFromText(CENTRE_ENDPOINT), &observer);
}

bool ModuleSession::Load(std::string& strError) {
    return m_loader.Load(m_strFile, strError);
}

void ModuleSession::End() {
    m_router.EndWaiting();
    m_loader.Stop();
    // Answers under way still find the module's cache; messages under way still find its queue.
    const auto due = steady_clock::now() + LAST_ANSWERS;
    while (m_router.Pending() > 0 && steady_clock::now() < due) {
        std::this_thread::sleep_for(ROUTER_LOOK);
    }
    m_loader.Unload();
    m_router.Close();
    m_printed.End();
}
