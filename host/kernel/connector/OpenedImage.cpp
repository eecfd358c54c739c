#include "host/kernel/connector/OpenedImage.h"

#include <elf.h>

#include <algorithm>
#include <cstring>

namespace {

constexpr size_t FIRST_LINE = 256;  // as far as the kernel reads it
constexpr const char* BLANKS = " \t";

// The loader that an ELF file names, when its table and the name stand in strHead.
template <typename Head, typename Entry>
std::string LoaderOf(const std::string& strHead) {
    Head head = {};
    if (strHead.size() < sizeof(head)) {
        return "";
    }
    std::memcpy(&head, strHead.data(), sizeof(head));
    for (size_t i = 0; i < head.e_phnum; ++i) {
        const size_t nAt = head.e_phoff + i * sizeof(Entry);
        Entry entry = {};
        if (nAt > strHead.size() || strHead.size() - nAt < sizeof(entry)) {
            return "";
        }
        std::memcpy(&entry, strHead.data() + nAt, sizeof(entry));
        if (entry.p_type == PT_INTERP && entry.p_offset < strHead.size()) {
            const std::string strName = strHead.substr(entry.p_offset, entry.p_filesz);
            return strName.substr(0, strName.find('\0'));
        }
    }
    return "";
}

std::string FirstWord(const std::string& strLine) {
    const size_t nBegin = strLine.find_first_not_of(BLANKS);
    if (nBegin == std::string::npos) {
        return "";
    }
    return strLine.substr(nBegin, strLine.find_first_of(BLANKS, nBegin) - nBegin);
}

bool IsLoaderOf(const OpenedFile& program, const OpenedFile& file, const FileIdOf& fnIdOf) {
    if (program.strInterp.empty() || file.eKind != OPENED_PROGRAM || !file.strInterp.empty()) {
        return false;
    }
    // By its name where the loader is another one here than in the process's own tree of files.
    return fnIdOf(program.strInterp) == file.id ||
           file.strPath.compare(file.strPath.rfind('/') + 1, 2, "ld") == 0;
}

// The scripts directly before nProgram that lead to it.
void TakeScripts(const std::vector<OpenedFile>& files, size_t nProgram, const FileIdOf& fnIdOf,
                 OpenedImage& image) {
    for (size_t i = nProgram; i-- > 0 && files[i].eKind == OPENED_SCRIPT;) {
        // A script whose interpreter is not what follows belongs to a start that failed.
        if (!(fnIdOf(files[i].strInterp) == files[i + 1].id)) {
            return;
        }
        // In another mount namespace its path is that of another file here.
        image.strScript = fnIdOf(files[i].strPath) == files[i].id ? files[i].strPath : "";
        image.strInterp = image.strInterp.empty() ? files[i].strInterp : image.strInterp;
    }
}

}  // namespace

void ReadHead(const std::string& strHead, OpenedFile& file) {
    file.eKind = OPENED_OTHER;
    file.strInterp.clear();
    if (strHead.compare(0, 2, "#!") == 0) {
        const std::string strLine = strHead.substr(2, FIRST_LINE - 2);
        file.eKind = OPENED_SCRIPT;
        file.strInterp =
            FirstWord(strLine.substr(0, strLine.find_first_of(std::string("\n\0", 2))));
    } else if (strHead.compare(0, SELFMAG, ELFMAG) == 0 && strHead.size() > EI_CLASS) {
        file.eKind = OPENED_PROGRAM;
        file.strInterp = strHead[EI_CLASS] == ELFCLASS64
                             ? LoaderOf<Elf64_Ehdr, Elf64_Phdr>(strHead)
                             : LoaderOf<Elf32_Ehdr, Elf32_Phdr>(strHead);
    }
}

std::vector<OpenedImage> ImagesOf(const std::vector<OpenedFile>& files, const FileIdOf& fnIdOf) {
    std::vector<OpenedImage> images;
    for (size_t i = 0; i < files.size(); ++i) {
        if (files[i].eKind != OPENED_PROGRAM) {
            continue;
        }
        OpenedImage image;
        image.program = files[i];
        TakeScripts(files, i, fnIdOf, image);
        images.push_back(std::move(image));
        if (i + 1 < files.size() && IsLoaderOf(files[i], files[i + 1], fnIdOf)) {
            ++i;
        }
    }
    return images;
}
