// What a command makes its sensors with: the kernel's own, unless a test brings others.
//
// Threads: any. Errors: as the sensors have them.
#ifndef HOST_KERNEL_SENSORMAKERS_H
#define HOST_KERNEL_SENSORMAKERS_H

#include <functional>
#include <memory>
#include <string>

#include "host/kernel/SensorChoice.h"
#include "host/kernel/file/FanotifySensor.h"

struct SensorMakers {
    // As MakeSensor: for one of SensorWords.
    std::function<std::unique_ptr<ILaunchSensor>(const std::string& strWord)> fnLaunches =
        MakeSensor;
    // As MakeFileSensor.
    std::function<std::unique_ptr<IFileSensor>(std::shared_ptr<WatchedPaths> pPlaces, bool bAll)>
        fnFiles = MakeFileSensor;
};

#endif
