// The kernel's side of the file operations: one fanotify group that is notified and never asked for
// permission, so that a host that stands still does not stop the machine.
//
// The kernel keeps at most fs.fanotify.max_queued_events events (16,384 unless set otherwise) for
// it. Without that bound a host that stands still would take the machine's memory instead; what
// finds no room is lost, and the kernel reports that it was.
#ifndef HOST_KERNEL_FILE_FANOTIFYSENSOR_H
#define HOST_KERNEL_FILE_FANOTIFYSENSOR_H

#include <memory>

#include "host/event/WatchedPaths.h"
#include "host/kernel/file/IFileSensor.h"

// Never null. bAll: every local file system.
std::unique_ptr<IFileSensor> MakeFileSensor(std::shared_ptr<WatchedPaths> pPlaces, bool bAll);

#endif
