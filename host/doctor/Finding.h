// What the doctor found out in one look.
#ifndef HOST_DOCTOR_FINDING_H
#define HOST_DOCTOR_FINDING_H

#include <string>

enum FindingState { FINDING_OK, FINDING_WARNING, FINDING_FAILED };

struct Finding {
    FindingState eState = FINDING_OK;
    std::string strCheck;   // what was examined
    std::string strText;    // what was found, and what it means
    std::string strRemedy;  // what to do; "" when it is ok
};

#endif
