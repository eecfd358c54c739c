// Questions about paths and files.
//
// Threads: any; no state. Errors: a path that is empty, holds a NUL byte or cannot be read
//   names no file. Nothing opens a file.
#ifndef FRAMEWORK_BASE_FILE_UTILS_H
#define FRAMEWORK_BASE_FILE_UTILS_H

#include <cstdint>
#include <string>

#include "framework/abi/Export.h"

enum FOLLOW_LINK_TYPE : int32_t {
    FOLLOW_LINK_NO = 0,   // look at a symbolic link itself
    FOLLOW_LINK_YES = 1,  // look at what it leads to
};

namespace file_utils {

// True for an existing regular file.
HOSTFRAMEWORK_API bool IsFile(const std::string& strPath, FOLLOW_LINK_TYPE eFollow);

// True for anything that exists.
HOSTFRAMEWORK_API bool IsExist(const std::string& strPath, FOLLOW_LINK_TYPE eFollow);

// The text after the last "/", all of it when there is none.
HOSTFRAMEWORK_API std::string GetFileName(const std::string& strPath);

// The text after the last "." of the file name: ".bashrc" gives "bashrc", "a." and "dir.d/file"
// give "".
HOSTFRAMEWORK_API std::string GetFileSuffix(const std::string& strPath);

}  // namespace file_utils

#endif
