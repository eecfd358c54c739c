#include "framework/base/CDir.h"

#include <unistd.h>

#include <cstdlib>
#include <memory>

std::string CDir::currentDir() {
    struct Free {
        void operator()(char* pText) const { std::free(pText); }
    };
    // With a null buffer the C library allocates what a path of any length needs.
    const std::unique_ptr<char, Free> pPath(getcwd(nullptr, 0));
    if (pPath == nullptr) {
        return "./";
    }

    std::string strPath(pPath.get());
    if (strPath.back() != '/') {
        strPath += '/';
    }
    return strPath;
}
