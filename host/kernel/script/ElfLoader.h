// Whether a started file is an ELF loader, which starts the program among its arguments. By its
// content: a copy has any name.
//
// Threads: one. Errors: what cannot be read is none; nothing throws but std::bad_alloc.
#ifndef HOST_KERNEL_SCRIPT_ELFLOADER_H
#define HOST_KERNEL_SCRIPT_ELFLOADER_H

#include <cstddef>
#include <string>
#include <unordered_map>

#include "host/kernel/script/LoaderArguments.h"
#include "host/program/FileVersion.h"
#include "host/program/HeldFile.h"

namespace elf_file {

enum Shape {
    SHAPE_OTHER,    // no ELF file of this machine's byte order, or with a loader of its own
    SHAPE_PROGRAM,  // an ELF file all the same: started as it is, or by a loader
    SHAPE_SHARED,   // a shared object without a loader, not known by its soname
    SHAPE_GLIBC,    // by its soname
    SHAPE_MUSL
};

// Reads its tables and one text, some 20 KiB at most.
Shape ShapeOf(int nFd);
// Whether it begins as ELF files do.
bool IsElf(int nFd);

}  // namespace elf_file

class ElfLoaders {
public:
    static constexpr size_t MOST_KNOWN = 4096;  // versions of files

    // strName: a path that it was started by; a loader of musl may have no soname but a file name.
    LoaderKind KindOf(const HeldFile& file, const std::string& strName);

private:
    elf_file::Shape ShapeOf(const HeldFile& file);

    std::unordered_map<FileVersion, elf_file::Shape, FileVersionHash> m_known;
};

#endif
