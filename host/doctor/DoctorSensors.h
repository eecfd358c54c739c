// The doctor's look at what the kernel lets the host capture, by trying it.
//
// Threads: the control thread. Errors: what goes wrong is a finding.
#ifndef HOST_DOCTOR_DOCTORSENSORS_H
#define HOST_DOCTOR_DOCTORSENSORS_H

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "host/doctor/Finding.h"
#include "host/event/WatchedPaths.h"
#include "host/kernel/SensorMakers.h"

namespace doctor {

// Opens each launch sensor and the file sensor for a moment, and marks the file systems that hold
// the watched places.
std::vector<Finding> OfSensors(
    const SensorMakers& makers = {},
    const std::shared_ptr<WatchedPaths>& pPlaces = std::make_shared<WatchedPaths>());

// Of the attempts to open launch sensors, the best first: word of --sensor, and what stood in the
// way, "" for nothing.
std::vector<Finding> OfLaunchSensors(
    const std::vector<std::pair<std::string, std::string>>& attempts);

// Of the attempt to mark the whole file system mounted at strPoint: 0 or errno.
Finding OfMark(const std::string& strPoint, const std::string& strType, int nError);

}  // namespace doctor

#endif
