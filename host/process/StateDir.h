// The state directory of a host: the databases of the module, the directory the process works in
// and the lock that keeps a second host out.
//
//   <dir>          0700, made when missing, its parents too
//   <dir>/lock     held while the object lives; its text is the process id of the holder
//   <dir>/data/db  where the module keeps its databases
//   <dir>/run      the current directory of the process, so that ../data/db resolves
//
// Refused when others can write to it, or can put another directory in its place: a parent that is
// not root's or the user's own, or that others may write to without the sticky bit.
//
// Threads: the control thread, before any other starts.
// Errors: texts that name the directory and what to do.
#ifndef HOST_PROCESS_STATEDIR_H
#define HOST_PROCESS_STATEDIR_H

#include <string>

#include "host/base/UniqueFd.h"

class StateDir {
public:
    StateDir() = default;
    ~StateDir() = default;  // lets the lock go; the current directory stays

    StateDir(const StateDir&) = delete;
    StateDir& operator=(const StateDir&) = delete;

    // For root /var/lib/tevmon; else $XDG_STATE_HOME/tevmon when that is absolute, else
    // $HOME/.local/state/tevmon; "" when the user has neither.
    static std::string DefaultPath();

    // strPath as seen from the current directory, without a final "/".
    static std::string Absolute(const std::string& strPath);

    // Whether Enter would get as far as the lock, without making anything. strText says what was
    // found, or what is wrong and what to do.
    static bool IsUsable(const std::string& strPath, std::string& strText);

    // Prepares strPath, takes the lock, sets the umask to 077 and changes into <dir>/run.
    bool Enter(const std::string& strPath, std::string& strError);

private:
    bool TakeLock(int nDirFd, const std::string& strPath, std::string& strError);

    UniqueFd m_lock;
};

#endif
