// Where things stand in a state directory; StateDir says what each is for, and makes it.
//
// Threads: any; no state. Errors: none but std::bad_alloc.
#ifndef HOST_BASE_STATELAYOUT_H
#define HOST_BASE_STATELAYOUT_H

#include <string>
#include <vector>

namespace state_layout {

inline std::string Data(const std::string& strStateDir) {
    return strStateDir + "/data";
}

// The module's databases, which it finds as ../data/db from Run.
inline std::string Databases(const std::string& strStateDir) {
    return Data(strStateDir) + "/db";
}

// The current directory of a run.
inline std::string Run(const std::string& strStateDir) {
    return strStateDir + "/run";
}

// Every directory of it, itself the first.
inline std::vector<std::string> Directories(const std::string& strStateDir) {
    return {strStateDir, Data(strStateDir), Databases(strStateDir), Run(strStateDir)};
}

}  // namespace state_layout

#endif
