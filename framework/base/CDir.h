// Directories.
//
// Threads: any; the current directory belongs to the process.
#ifndef FRAMEWORK_BASE_CDIR_H
#define FRAMEWORK_BASE_CDIR_H

#include <string>

#include "framework/abi/Export.h"

class HOSTFRAMEWORK_API CDir {
public:
    // The process's current directory, absolute, ending in "/". "./" when it has no path.
    static std::string currentDir();
};

#endif
