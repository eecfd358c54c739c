#include "tevmon/core/CTevFsMonitor.h"

bool CTevFsMonitor::ParseFsOpMsg(const std::string& /*strSender*/,
                                 const std::string& /*strContent*/) {
    return true;
}
