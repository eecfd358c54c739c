#include "host/kernel/script/ElfLoader.h"

#include <elf.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <vector>

namespace {

using namespace elf_file;

constexpr size_t MOST_SEGMENTS = 64;
constexpr size_t MOST_DYNAMIC = 512;  // entries
constexpr size_t MOST_SONAME = 64;    // bytes

bool ReadAll(int nFd, uint64_t nOffset, void* pBytes, size_t nSize) {
    return nOffset <= INT64_MAX &&
           pread(nFd, pBytes, nSize, static_cast<off_t>(nOffset)) == static_cast<ssize_t>(nSize);
}

bool BeginsWith(const std::string& strText, const char* pszBegin) {
    return strText.compare(0, std::strlen(pszBegin), pszBegin) == 0;
}

Shape ShapeBySoname(const std::string& strSoname) {
    if (BeginsWith(strSoname, "ld-musl-") || BeginsWith(strSoname, "libc.musl-") ||
        strSoname == "libc.so") {
        return SHAPE_MUSL;
    }
    const bool bGlibc = BeginsWith(strSoname, "ld-") || BeginsWith(strSoname, "ld.so") ||
                        BeginsWith(strSoname, "ld64");
    return bGlibc ? SHAPE_GLIBC : SHAPE_SHARED;
}

template <class Head, class Segment, class Dynamic>
class Reader {
public:
    explicit Reader(int nFd) : m_nFd(nFd) {}

    Shape Read() {
        Head head = {};
        if (!ReadAll(m_nFd, 0, &head, sizeof(head)) || head.e_phentsize != sizeof(Segment) ||
            head.e_phnum > MOST_SEGMENTS) {
            return SHAPE_OTHER;
        }
        m_segments.resize(head.e_phnum);
        if (!ReadAll(m_nFd, head.e_phoff, m_segments.data(), head.e_phnum * sizeof(Segment))) {
            return SHAPE_OTHER;
        }
        const Segment* const pDynamic = Find(PT_DYNAMIC);
        if (head.e_type != ET_DYN || Find(PT_INTERP) != nullptr || pDynamic == nullptr) {
            return SHAPE_PROGRAM;
        }
        return ReadDynamic(*pDynamic);
    }

private:
    const Segment* Find(uint32_t nType) const {
        const auto found =
            std::find_if(m_segments.begin(), m_segments.end(),
                         [nType](const Segment& segment) { return segment.p_type == nType; });
        return found == m_segments.end() ? nullptr : &*found;
    }

    Shape ReadDynamic(const Segment& segment) const {
        const size_t nCount = std::min<uint64_t>(segment.p_filesz / sizeof(Dynamic), MOST_DYNAMIC);
        std::vector<Dynamic> entries(nCount);
        if (!ReadAll(m_nFd, segment.p_offset, entries.data(), nCount * sizeof(Dynamic))) {
            return SHAPE_PROGRAM;
        }
        uint64_t nSoname = 0;
        uint64_t nTexts = 0;
        for (const Dynamic& entry : entries) {
            if (entry.d_tag == DT_NULL) {
                break;
            }
            nSoname = entry.d_tag == DT_SONAME ? entry.d_un.d_val : nSoname;
            nTexts = entry.d_tag == DT_STRTAB ? entry.d_un.d_ptr : nTexts;
        }
        // A program that moves its own addresses has no soname and is none.
        return nSoname == 0 ? SHAPE_SHARED : ShapeBySoname(TextAt(nTexts + nSoname));
    }

    std::string TextAt(uint64_t nAddress) const {
        for (const Segment& segment : m_segments) {
            if (segment.p_type == PT_LOAD && nAddress >= segment.p_vaddr &&
                nAddress - segment.p_vaddr < segment.p_filesz) {
                char text[MOST_SONAME + 1] = {};
                const uint64_t nOffset = segment.p_offset + (nAddress - segment.p_vaddr);
                const bool bRead = nOffset <= INT64_MAX &&
                                   pread(m_nFd, text, MOST_SONAME, static_cast<off_t>(nOffset)) > 0;
                return bRead ? text : "";
            }
        }
        return "";
    }

    const int m_nFd;
    std::vector<Segment> m_segments;
};

}  // namespace

bool elf_file::IsElf(int nFd) {
    char ident[SELFMAG];
    return ReadAll(nFd, 0, ident, sizeof(ident)) && std::memcmp(ident, ELFMAG, SELFMAG) == 0;
}

Shape elf_file::ShapeOf(int nFd) {
    unsigned char ident[EI_NIDENT];
    if (!IsElf(nFd) || !ReadAll(nFd, 0, ident, sizeof(ident)) || ident[EI_DATA] != ELFDATA2LSB) {
        return SHAPE_OTHER;
    }
    return ident[EI_CLASS] == ELFCLASS64 ? Reader<Elf64_Ehdr, Elf64_Phdr, Elf64_Dyn>(nFd).Read()
                                         : Reader<Elf32_Ehdr, Elf32_Phdr, Elf32_Dyn>(nFd).Read();
}

LoaderKind ElfLoaders::KindOf(const HeldFile& file, const std::string& strName) {
    const Shape eShape = ShapeOf(file);
    const bool bNamed = strName.compare(strName.rfind('/') + 1, 8, "ld-musl-") == 0;
    return eShape == SHAPE_GLIBC              ? LOADER_GLIBC
           : eShape == SHAPE_MUSL             ? LOADER_MUSL
           : eShape == SHAPE_SHARED && bNamed ? LOADER_MUSL
                                              : LOADER_NONE;
}

Shape ElfLoaders::ShapeOf(const HeldFile& file) {
    // What may change without a trace is read each time.
    if (!file.IsSure() || !file.Version().IsKnown()) {
        return elf_file::ShapeOf(file.Descriptor());
    }
    const auto found = m_known.find(file.Version());
    if (found != m_known.end()) {
        return found->second;
    }
    if (m_known.size() >= MOST_KNOWN) {
        m_known.clear();
    }
    return m_known[file.Version()] = elf_file::ShapeOf(file.Descriptor());
}
