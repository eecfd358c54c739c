// The kernel's side of the launch source: loads and attaches host/kernel/bpf/launch.bpf.c.
#ifndef HOST_KERNEL_LAUNCH_LAUNCHSENSOR_H
#define HOST_KERNEL_LAUNCH_LAUNCHSENSOR_H

#include <memory>
#include <string>

#include "host/kernel/launch/ILaunchSensor.h"

// Why it cannot be opened and what to do: the error of the kernel's refusal, whether the kernel has
// its types (BTF), and the text of /sys/kernel/security/lockdown, "" where there is none.
std::string LaunchRefusal(int nError, bool bTypes, const std::string& strLockdown);

// Never null. One that was left out of this build refuses to open and says so.
std::unique_ptr<ILaunchSensor> MakeLaunchSensor();

#endif
