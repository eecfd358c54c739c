// How the sensors look at a file by its path, and the form in which others look for them.
//
// Threads: any; no state. Errors: none but std::bad_alloc.
#ifndef HOST_KERNEL_LAUNCH_FILELOOK_H
#define HOST_KERNEL_LAUNCH_FILELOOK_H

#include <fcntl.h>
#include <sys/stat.h>

#include <functional>
#include <string>

// stat: false when there is no such file.
using FileLook = std::function<bool(const std::string& strPath, struct stat& status)>;

namespace file_look {

bool AtTarget(const std::string& strPath, struct stat& status);  // of a link what it leads to
bool AtItself(const std::string& strPath, struct stat& status);  // of a link the link

// Where a link leads, as it is written; "" when it cannot be read. A relative strLink is one of the
// directory nDir.
std::string LinkText(const std::string& strLink, int nDir = AT_FDCWD);

}  // namespace file_look

#endif
