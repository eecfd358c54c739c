// The launch sensors for kernels that take no eBPF program: the process connector, with or without
// fanotify's events of executed files. They must look a program up while it lives, so that a
// thread of their own with real-time priority reads them.
//
// Threads: as ILaunchSensor; the thread lives from Open to Detach.
// Errors: as ILaunchSensor.
//
// Memory is bounded: what waits for Drain by 8 MiB, what waits for the thread by the kernel.
#ifndef HOST_KERNEL_CONNECTOR_CONNECTORSENSOR_H
#define HOST_KERNEL_CONNECTOR_CONNECTORSENSOR_H

#include <memory>

#include "host/kernel/launch/ILaunchSensor.h"

// With bOpens paths come from the files that were opened, else from /proc alone. Never null.
std::unique_ptr<ILaunchSensor> MakeConnectorSensor(bool bOpens);

#endif
