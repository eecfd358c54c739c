// The plug-in object behind the operation table: its status, the receiver of the host's messages,
// the task timer, and the order in which the module's threads start and stop.
//
// Threads: [control] the host's calls, one at a time; zkp_stop may also come from another thread
//   while the process exits.
// Errors: no operation reports a failure to the host; what failed stands in the log.
// Ownership: one object per process, made by GetPluginInstance in a place of the library's own and
//   never freed; what its members hold goes when the library is unloaded or the process exits.
#ifndef TEVMON_CORE_CTEVMONPLUGIN_H
#define TEVMON_CORE_CTEVMONPLUGIN_H

#include "framework/abi/IPluginProxy.h"
#include "tevmon/core/CTevMonIpcRecever.h"
#include "tevmon/core/CTevMonTimer.h"

class CTevMonPlugin : public IPluginProxy {
public:
    int32_t zkp_init(void* pHostArgument) override;  // the argument is not looked at
    void zkp_uninit() override;                      // unregisters the receiver, closes the router
    // Keeps the router, names this endpoint to it and registers the receiver. A null router leaves
    // everything as it was.
    void zkp_setopt(IMsgRouter* pRouter) override;
    int32_t zkp_getstatus() override;
    int32_t zkp_start() override;  // task timer, verdict cache, message channel
    // Task timer, message channel, verdict cache; waits for the analysis in hand.
    int32_t zkp_stop() override;

    // [exit, after the singletons] Lets go of what the members hold, unless something still runs.
    static void End();

private:
    // Stops the three threads; each manager writes its exit line when bLines. True when no thread
    // is left.
    bool StopThreads(bool bLines);
    // What runs before the first singleton is destroyed.
    static bool TearDown();
    static void PrepareTearDown();  // in this process

    CTevMonIpcRecever m_recever;
    CTevMonTimer m_timer;  // after the receiver, so it is destroyed first
};

// [control] The plug-in object, made at the first call; null when memory ran out and after its
// end. Takes no lock.
IPluginProxy* GetPluginInstance();

#endif
