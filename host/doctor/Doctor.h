// Looks whether everything that a run needs works on this machine, by trying it.
//
// Nothing is made, changed or left behind; a host that works with the state directory is not
// disturbed.
//
// Threads: the control thread. Errors: what goes wrong is a finding; nothing throws but
//   std::bad_alloc.
#ifndef HOST_DOCTOR_DOCTOR_H
#define HOST_DOCTOR_DOCTOR_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "host/base/HostOptions.h"
#include "host/doctor/Finding.h"

namespace doctor {

// What the checks are made of besides the options; a test brings its own.
struct Machine {
    std::function<bool(int nCapability)> fnHas;  // as privileges::Has
    std::string strRelease;                      // of the kernel, as uname has it
    std::function<std::vector<Finding>()> fnSensors;
    std::function<int64_t()> fnNow;  // seconds since the epoch
    std::string strPackages;         // the package database
};

Machine ThisMachine();

// All checks, in the order in which a user would mend things.
std::vector<Finding> Examine(const HostOptions& options, const Machine& machine = ThisMachine());

// Single ones. fnHas says whether the process has the capability of that number.
Finding OfPrivilege(const std::function<bool(int nCapability)>& fnHas);
Finding OfKernel(const std::string& strRelease);
Finding OfClock(int64_t tmNow, int64_t tmNewestFile);  // 0: there is no file
Finding OfSpace(const std::string& strPlace, uint64_t nFreeBytes, uint64_t nFreeInodes,
                uint64_t nInodes);
Finding OfStateDirectory(const std::string& strPath);
Finding OfDatabase(const std::string& strFile);
Finding OfModule(const std::string& strFile);
Finding OfPackages(const std::string& strInfoDir);

}  // namespace doctor

#endif
