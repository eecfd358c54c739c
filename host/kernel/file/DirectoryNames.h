// The names in a directory, in the form in which others ask for them.
//
// Threads: any; no state. Errors: none but std::bad_alloc; what cannot be read has no names.
#ifndef HOST_KERNEL_FILE_DIRECTORYNAMES_H
#define HOST_KERNEL_FILE_DIRECTORYNAMES_H

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

using NamesIn =
    std::function<std::vector<std::string>(const std::string& strDirectory, size_t nMost)>;

namespace directory_names {

// At most nMost of them, in the file system's order, without "." and "..".
std::vector<std::string> In(const std::string& strDirectory, size_t nMost);

}  // namespace directory_names

#endif
