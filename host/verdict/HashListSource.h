// A bad or good list: a text file of digests, any mixture of
//
//     <digest>  <name>  and  <digest> *<name>     as sha1sum and md5sum write them
//     \<digest>  <name with \\, \n and \r>        the same for unusual names
//     MD5 (<name>) = <digest>                     and SHA1, as their --tag form
//     <digest>:<size>:<name>                      signatures, .hdb and .hsb
//
// The length of a digest distinguishes MD5 from SHA-1; either of a program's two digests decides. A
// program's key says nothing of its size, so the size of a signature is not compared. SHA-256
// digests are counted and otherwise passed over: no key holds one.
//
// Threads: as IVerdictSource. Errors: Load's text; nothing throws but std::bad_alloc.
#ifndef HOST_VERDICT_HASHLISTSOURCE_H
#define HOST_VERDICT_HASHLISTSOURCE_H

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "host/verdict/DigestIndex.h"
#include "host/verdict/IVerdictSource.h"

class HashListSource : public IVerdictSource {
public:
    // Reads the whole of strFile; every program in it gets nLevel (70 for a bad list, 20 for a
    // good list). One unreadable line refuses the file: null, and strError names the file, the
    // line, what is wrong with it and the remedy.
    static std::unique_ptr<HashListSource> Load(const std::string& strFile, int nLevel,
                                                std::string& strError);

    // By SHA-1 first. The owner is the name of the entry, the first one of its digest.
    std::optional<Verdict> Lookup(const ProgramKey& key) const override;

    size_t Count() const { return m_md5.Count() + m_sha1.Count(); }  // different digests
    size_t UnusableCount() const { return m_nUnusable; }             // lines with SHA-256

    // A warning about a list that was loaded; "" most of the time.
    std::string Note() const;

private:
    HashListSource(const std::string& strFile, int nLevel);

    bool AddLine(std::string_view strLine, std::string& strError);

    const std::string m_strFile;
    const int m_nLevel;
    size_t m_nUnusable = 0;
    std::string m_strNames;  // every name with a NUL behind it; an owner is an offset into it
    DigestIndex<16> m_md5;
    DigestIndex<20> m_sha1;
};

#endif
