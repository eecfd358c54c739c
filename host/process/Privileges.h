// Gives up what a run does not need, so that a fault in the module or in a sensor is not root.
//
//   Confine           before the sensors start: no new privileges by starting programs, no core
//                     file and no other process of the user may look inside, and of the
//                     capabilities only those with which sensors start
//   KeepForWatching   after they started: reading everybody's files and processes, marks on file
//                     systems that appear later, and the counters of the eBPF programs
//   DropAll           for a thread that only waits
//   Has               whether the calling thread may do something by now
//
// Capabilities belong to a thread; those that it starts get the same.
//
// Threads: Confine before any other exists; the others change the calling thread alone, or ask
//   of it.
// Errors: what cannot be given up was not there, or stays; nothing throws.
#ifndef HOST_PROCESS_PRIVILEGES_H
#define HOST_PROCESS_PRIVILEGES_H

namespace privileges {

void Confine();
void KeepForWatching();
void DropAll();

// nCapability: its number in linux/capability.h. False also where /proc is not mounted.
bool Has(int nCapability);

}  // namespace privileges

#endif
