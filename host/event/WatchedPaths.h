// The watched places, in which the module acts on file operations, and how paths in them are
// spelled.
//
// The module compares the beginning of a path; the kernel reports paths with every link followed.
// Where a place is reached over a link (/lib is usr/lib), the path is reported as the place is
// written.
//
// Threads: one. Errors: none but std::bad_alloc.
#ifndef HOST_EVENT_WATCHEDPATHS_H
#define HOST_EVENT_WATCHEDPATHS_H

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "host/event/FileOperation.h"

class WatchedPaths {
public:
    // An autostart location, where every operation counts, or a unit directory, where only the
    // creation of a unit does.
    struct Place {
        const char* pszDirectory;  // ends in "/"; what is below it counts as well
        const char* pszSuffix;     // of a unit's name; null for an autostart location
    };
    // One directory to be watched, as the kernel spells it, without a final "/".
    struct Directory {
        std::string strPath;
        bool bUnits;  // a unit directory: only creations count
    };
    using Aliases = std::vector<std::pair<std::string, std::string>>;
    // realpath: "" when there is no such file.
    using RealPath = std::function<std::string(const std::string& strPath)>;

    static const std::vector<Place>& All();

    // aliases: pairs of how the kernel spells a directory and how it is to be reported.
    explicit WatchedPaths(const Aliases& aliases = {}, RealPath fnReal = {});

    // Looks where the links lead now.
    void Resolve();
    const std::vector<Directory>& Directories() const { return m_directories; }

    // strPath, or the spelling of it that lies in a place.
    std::string Spelled(const std::string& strPath) const;

    // True when the module can act on it. strPath as Spelled gives it.
    static bool IsWatched(FileAct eAct, const std::string& strPath);

private:
    std::string Follow(const std::string& strPath) const;
    void AddDirectory(const std::string& strPath, const Place& place);

    const Aliases m_given;
    const RealPath m_fnReal;
    Aliases m_aliases;  // the given ones and those that links make; no final "/"
    std::vector<Directory> m_directories;
};

#endif
