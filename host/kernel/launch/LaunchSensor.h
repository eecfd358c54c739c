// The kernel's side of the launch source: loads and attaches host/kernel/bpf/launch.bpf.c.
#ifndef HOST_KERNEL_LAUNCH_LAUNCHSENSOR_H
#define HOST_KERNEL_LAUNCH_LAUNCHSENSOR_H

#include <memory>

#include "host/kernel/launch/ILaunchSensor.h"

// Never null. One that was left out of this build refuses to open and says so.
std::unique_ptr<ILaunchSensor> MakeLaunchSensor();

#endif
