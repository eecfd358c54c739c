#include "tevmon/core/CTevMonPlugin.h"

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "framework/abi/MsgTypes.h"
#include "public/pluginhelper/CMsgRouterHolder.h"
#include "public/pluginhelper/GuidText.h"
#include "public/pluginhelper/LogPrint.h"
#include "tevmon/core/CTevCallGate.h"
#include "tevmon/core/CTevChennalMgr.h"
#include "tevmon/core/CTevCloudCachoMgr.h"
#include "tevmon/core/CTevModuleReference.h"

namespace {

constexpr char SOURCE[] = "tevmon/core/CTevMonPlugin";

// Fixed, read by log filters.
constexpr int LINE_INIT = 22;
constexpr int LINE_UNINIT = 28;
constexpr int LINE_SETOPT = 36;
constexpr int LINE_GETSTATUS = 50;
constexpr int LINE_START = 55;
constexpr int LINE_STOP = 64;

constexpr int TEARDOWN_WAIT_MS = 2000;  // for host threads that are still inside at exit

// In the library itself: it comes and goes with it, load after load, and is never freed.
alignas(CTevMonPlugin) unsigned char s_place[sizeof(CTevMonPlugin)];
CTevMonPlugin* s_pPlugin = nullptr;
bool s_bEnded = false;
std::atomic<pid_t> s_nProcess{0};     // the one that has the threads
std::atomic<bool> s_bStarted{false};  // once is enough: there may be threads to stop

// pManager may be null.
template <class Manager>
void EndThreadOf(Manager* pManager, bool bLine) {
    if (pManager == nullptr) {
        return;
    }
    if (bLine) {
        pManager->Exit();
    } else {
        pManager->EndThread();
    }
}

}  // namespace

int32_t CTevMonPlugin::zkp_init(void* /*pHostArgument*/) {
    LogPrint(LOG_TRACE, SOURCE, "zkp_init", LINE_INIT, "[CTevMonPlugin] zkp_init...");
    m_eStatus = PluginInitialised;
    return 0;
}

void CTevMonPlugin::zkp_uninit() {
    LogPrint(LOG_TRACE, SOURCE, "zkp_uninit", LINE_UNINIT, "[CTevMonPlugin] zkp_uninit...");
    CMsgRouterHolder* pHolder = CMsgRouterHolder::Instance();
    if (pHolder != nullptr) {
        pHolder->UnregisterReceiver(MSG_TYPE_HIPS_EVENT);
        pHolder->UnregisterReceiver(MSG_TYPE_CLOUD_RESULT);
        pHolder->Close();
    }
    m_eStatus = PluginUninitialised;
}

void CTevMonPlugin::zkp_setopt(IMsgRouter* pRouter) {
    // The class word is another one on purpose; log filters know it so.
    LogPrint(LOG_TRACE, SOURCE, "zkp_setopt", LINE_SETOPT, "[CWorkerPlugin] zkp_setopt...");
    CMsgRouterHolder* pHolder = CMsgRouterHolder::Instance();
    if (pRouter == nullptr || pHolder == nullptr) {
        return;
    }
    // The host's threads may come in from here on, whether a start follows or not.
    PrepareTearDown();
    pHolder->SetRouter(pRouter);
    Guid identity = {};
    ParseGuid(MODULE_IDENTITY, &identity);
    (void)pHolder->SetLocalIdentity(identity);  // what fails here shows as silence, to the host
    (void)pHolder->RegisterReceiver(MSG_TYPE_HIPS_EVENT, &m_recever);
    (void)pHolder->RegisterReceiver(MSG_TYPE_CLOUD_RESULT, &m_recever);
}

int32_t CTevMonPlugin::zkp_getstatus() {
    LogPrint(LOG_TRACE, SOURCE, "zkp_getstatus", LINE_GETSTATUS,
             "[CTevMonPlugin] zkp_getstatus...");
    return static_cast<int32_t>(m_eStatus);
}

int32_t CTevMonPlugin::zkp_start() {
    // The getstatus text, on purpose; log filters know it so.
    LogPrint(LOG_TRACE, SOURCE, "zkp_start", LINE_START, "[CTevMonPlugin] zkp_getstatus...");
    CTevModuleReference::Take();
    PrepareTearDown();
    s_bStarted.store(true);
    (void)m_timer.Start(CThread::PriorityNormal);
    CTevCloudCachoMgr* pCache = CTevCloudCachoMgr::Instance();
    if (pCache != nullptr) {
        (void)pCache->Start(CThread::PriorityNormal);
    }
    CTevChennalMgr* pChannel = CTevChennalMgr::Instance();
    if (pChannel != nullptr) {
        (void)pChannel->Start(CThread::PriorityNormal);
    }
    m_eStatus = PluginStarted;
    return 0;
}

int32_t CTevMonPlugin::zkp_stop() {
    LogPrint(LOG_TRACE, SOURCE, "zkp_stop", LINE_STOP, "[CTevMonPlugin] zkp_stop...");
    const bool bStopped = StopThreads(true);
    m_eStatus = PluginStopped;
    if (bStopped) {
        CTevModuleReference::Drop();
    }
    return 0;
}

bool CTevMonPlugin::StopThreads(bool bLines) {
    // Timer, channel, cache: not start reversed. This order is relied on.
    m_timer.Stop();
    CTevChennalMgr* pChannel = CTevChennalMgr::Instance();
    EndThreadOf(pChannel, bLines);
    CTevCloudCachoMgr* pCache = CTevCloudCachoMgr::Instance();
    EndThreadOf(pCache, bLines);
    return !m_timer.isJoinable() && (pChannel == nullptr || !pChannel->isJoinable()) &&
           (pCache == nullptr || !pCache->isJoinable());
}

void CTevMonPlugin::PrepareTearDown() {
    s_nProcess.store(getpid());
    utils::SingletonTeardown::SetHook(&TearDown);
}

bool CTevMonPlugin::TearDown() {
    if (getpid() != s_nProcess.load()) {
        // A child of fork that exits: it has no thread to join, and others' locks stay locked.
        return false;
    }
    // Without a start it must not bring up what it would stop. No exit lines here: each manager's
    // destructor, which follows, writes its own.
    const bool bStarted = s_pPlugin != nullptr && s_bStarted.load();
    const bool bStopped = !bStarted || s_pPlugin->StopThreads(false);
    const bool bMayDestroy = CTevCallGate::Shut(TEARDOWN_WAIT_MS) && bStopped;
    if (bStarted && !bMayDestroy) {
        (void)s_pPlugin->StopThreads(true);  // no destructor will write the lines
    }
    return bMayDestroy;
}

void CTevMonPlugin::End() {
    CTevMonPlugin* pPlugin = s_pPlugin;
    if (pPlugin == nullptr || !utils::SingletonTeardown::MayDestroy()) {
        return;
    }
    s_bEnded = true;
    s_pPlugin = nullptr;
    // The rest of the receiver stays: the host's router may call it up to the end of the process.
    pPlugin->m_recever.DropHandlers();
    pPlugin->m_timer.~CTevMonTimer();
}

IPluginProxy* GetPluginInstance() {
    if (s_pPlugin == nullptr && !s_bEnded) {
        try {
            s_pPlugin = new (s_place) CTevMonPlugin;
            (void)std::atexit(&CTevMonPlugin::End);  // a refusal costs what its members hold
        } catch (...) {  // out of memory further in; the next call tries again
        }
    }
    return s_pPlugin;
}
