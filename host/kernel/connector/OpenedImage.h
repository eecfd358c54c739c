// Which program was started, known by the files that the kernel opened for it: first the scripts,
// then the program, then its loader. Starts that failed leave files that belong to none.
//
// Threads: any; no state. Errors: none but std::bad_alloc.
#ifndef HOST_KERNEL_CONNECTOR_OPENEDIMAGE_H
#define HOST_KERNEL_CONNECTOR_OPENEDIMAGE_H

#include <functional>
#include <string>
#include <vector>

#include "host/kernel/launch/ProcessLook.h"

enum OpenedKind { OPENED_OTHER, OPENED_SCRIPT, OPENED_PROGRAM };

// A file that was opened to be executed.
struct OpenedFile {
    FileId id;
    std::string strPath;  // as the kernel spells it; "" when it has no name any more
    OpenedKind eKind = OPENED_OTHER;
    std::string strInterp;  // of a script: as its first line names it; of a program: its loader
};

struct OpenedImage {
    OpenedFile program;
    std::string strScript;  // the first of the scripts that led to it; "" where no path leads to it
    std::string strInterp;  // what the last of them names in its first line; "" without a script
};

// From the first bytes of a file: its kind and interpreter.
void ReadHead(const std::string& strHead, OpenedFile& file);

// The file that a path leads to; not known when it leads to none.
using FileIdOf = std::function<FileId(const std::string& strPath)>;

// The images that one process was given, in their order.
std::vector<OpenedImage> ImagesOf(const std::vector<OpenedFile>& files, const FileIdOf& fnIdOf);

#endif
