// Objects of our interfaces for a caller that knows none of them. Needs no header of ours itself.
//
// Every operation of these objects notes its own name; LastOperation returns it.
#ifndef TESTS_ABI_OURS_SLOTOBJECTS_H
#define TESTS_ABI_OURS_SLOTOBJECTS_H

namespace slots {

const char* LastOperation();

// Made with new; the deleting destructor's slot or the destructor's and operator delete end them.
void* NewPluginProxy();      // implements every operation of IPluginProxy
void* NewBarePluginProxy();  // implements only those without a default
void* NewMsgRouter();
void* NewReceiver();
void* NewSendComplete();
void* NewMsgFunc();
void* NewTimerTask();
void* NewTaskTimer();  // overrides every virtual operation of CTaskTimer
void* NewChannel();    // derives from CTevChennalMgr, overrides run and what follows
void* NewCache();      // derives from CTevCloudCachoMgr, overrides run

// The module's own, where only the real result shows it.
void* Plugin();           // the plug-in object; never ends
void* NewModuleTimer();   // CTevMonTimer
void* NewEventHandler();  // CHipsMsgHandler
void* NewCloudHandler();  // CCloudQueryRetHandler
void* NewCompletion();    // CLogCacheAsynCallback

// Where the status lies in the object that Plugin returns.
unsigned StatusBehindVtable(const void* pPlugin);

}  // namespace slots

#endif
