// ELF files of one page, for tests: what a loader is known by.
#ifndef TESTS_SUPPORT_HOST_ELFBYTES_H
#define TESTS_SUPPORT_HOST_ELFBYTES_H

#include <elf.h>

#include <cstddef>
#include <cstring>
#include <string>

namespace elf_bytes {

struct Form {
    std::string strSoname;  // "" for none
    std::string strInterp;  // "" for none
    unsigned nType = ET_DYN;
    bool bDynamic = true;
};

template <class Head, class Segment, class Dynamic>
std::string File(const Form& form, unsigned char nClass) {
    constexpr size_t SHIFT = 0x1000;  // of addresses against offsets
    std::string strBytes(1024, '\0');
    Head head = {};
    std::memcpy(head.e_ident, ELFMAG, SELFMAG);
    head.e_ident[EI_CLASS] = nClass;
    head.e_ident[EI_DATA] = ELFDATA2LSB;
    head.e_type = static_cast<decltype(head.e_type)>(form.nType);
    head.e_phoff = sizeof(head);
    head.e_phentsize = sizeof(Segment);
    head.e_phnum = 3;
    Segment segments[3] = {};
    segments[0].p_type = PT_LOAD;
    segments[0].p_vaddr = SHIFT;
    segments[0].p_filesz = static_cast<decltype(segments[0].p_filesz)>(strBytes.size());
    segments[1].p_type = form.bDynamic ? PT_DYNAMIC : PT_NOTE;
    segments[1].p_offset = 512;
    segments[1].p_filesz = 4 * sizeof(Dynamic);
    segments[2].p_type = form.strInterp.empty() ? PT_NOTE : PT_INTERP;
    Dynamic entries[4] = {};
    entries[0].d_tag = DT_STRTAB;
    entries[0].d_un.d_ptr = SHIFT + 768;
    entries[1].d_tag = form.strSoname.empty() ? DT_DEBUG : DT_SONAME;
    entries[1].d_un.d_val = 1;
    std::memcpy(&strBytes[0], &head, sizeof(head));
    std::memcpy(&strBytes[sizeof(head)], segments, sizeof(segments));
    std::memcpy(&strBytes[512], entries, sizeof(entries));
    std::memcpy(&strBytes[769], form.strSoname.data(), form.strSoname.size());
    return strBytes;
}

inline std::string Wide(const Form& form) {
    return File<Elf64_Ehdr, Elf64_Phdr, Elf64_Dyn>(form, ELFCLASS64);
}

inline std::string Narrow(const Form& form) {
    return File<Elf32_Ehdr, Elf32_Phdr, Elf32_Dyn>(form, ELFCLASS32);
}

inline std::string Loader(const std::string& strSoname) {
    Form form;
    form.strSoname = strSoname;
    return Wide(form);
}

}  // namespace elf_bytes

#endif
