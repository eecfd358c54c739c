// Which program an ELF loader was given, by its arguments: "ld-linux-x86-64.so.2 ./program".
//
// Threads: any; no state. Errors: none but std::bad_alloc.
#ifndef HOST_KERNEL_SCRIPT_LOADERARGUMENTS_H
#define HOST_KERNEL_SCRIPT_LOADERARGUMENTS_H

#include <string>

enum LoaderKind { LOADER_NONE, LOADER_GLIBC, LOADER_MUSL };

struct GivenProgram {
    std::string strPath;    // as it was given; "" when the loader starts none, or it is not known
    bool bUnknown = false;  // it may start one, and nobody knows which
};

namespace loader_arguments {

// strArguments: each ends in a NUL, the loader's own name among them. bCut: there are more. Not
// known is a name that glibc looks for in its libraries' directories, what comes behind an option
// that is not known here, and what was cut.
GivenProgram ProgramOf(LoaderKind eKind, const std::string& strArguments, bool bCut = false);

}  // namespace loader_arguments

#endif
