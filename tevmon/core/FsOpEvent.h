// One file operation as the host reports it.
#ifndef TEVMON_CORE_FSOPEVENT_H
#define TEVMON_CORE_FSOPEVENT_H

#include <cstdint>
#include <string>

struct FsOpEvent {
    int32_t exe_pid = 0;      // process that did it
    std::string exe_path;     // that process's executable
    std::string path;         // the file it touched
    std::string result;       // the host's text; no handler looks at it
    std::string operation;    // "create", "remove", "rename" or "write"; "optertion" on the wire
    int64_t time = 0;         // as the host reports it
    std::string fs_type;      // likewise
    std::string disk_type;    // likewise
    int64_t ino = 0;          // read as a 32-bit number; 0 when it does not fit
    uint32_t path_class = 0;  // GetPathClass of path
};

#endif
