// Places in the file system where a file makes a program start by itself.
//
// Threads: any; no state. Paths are compared byte by byte as they come: no "..", doubled "/" or
//   link is resolved.
#ifndef TEVMON_CORE_AUTORUNLOCATIONS_H
#define TEVMON_CORE_AUTORUNLOCATIONS_H

#include <cstdint>
#include <string>

enum PathClass : uint32_t {
    PathClassEmpty = 0,
    PathClassAutoRun = 1,  // in an autostart location
    PathClassTwo = 2,      // no path is; consumers accept it all the same
    PathClassOther = 3,
};

uint32_t GetPathClass(const std::string& strPath);

// True within one of the cron, init, profile or spool directories; a directory itself, without its
// final "/", is not within.
bool IsAutoRunLocation(const std::string& strPath);

// Always false; kept so that class 2 stays a value of its own.
bool IsPathClassTwo(const std::string& strPath);

// True for a systemd unit ("service") or desktop autostart entry ("desktop"), by directory prefix,
// subdirectories included, and exact suffix. The first prefix that fits decides alone. Has nothing
// to do with GetPathClass.
bool IsAutoRunUnitPath(const std::string& strPath);

#endif
