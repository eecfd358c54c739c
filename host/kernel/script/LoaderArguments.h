// Which program an ELF loader was given, by its arguments: "ld-linux-x86-64.so.2 ./program".
//
// Threads: any; no state. Errors: none but std::bad_alloc.
#ifndef HOST_KERNEL_SCRIPT_LOADERARGUMENTS_H
#define HOST_KERNEL_SCRIPT_LOADERARGUMENTS_H

#include <string>

enum LoaderKind { LOADER_NONE, LOADER_GLIBC, LOADER_MUSL };

namespace loader_arguments {

// The program's path as it was given. strArguments: each ends in a NUL, the loader's own name among
// them. "" when the loader starts none (--list, --verify, an option that it does not know), and
// when it is not known which: a name that glibc looks for in its libraries' directories.
std::string ProgramOf(LoaderKind eKind, const std::string& strArguments);

}  // namespace loader_arguments

#endif
