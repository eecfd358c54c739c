// What the machine's packages installed: the md5sums files that dpkg keeps, one a package. A
// program whose MD5 stands in one of them is the one that the package brought, level 10.
//
// Only programs and libraries are held (IsProgramPath): manuals, translations and headers are
// two thirds of the lines and are never started. The empty file's digest is left out, because
// every empty file on the machine would belong to whichever package happens to ship one.
// The digests are MD5, all that dpkg keeps. They distinguish what a package installed from what it
// did not; someone able to make MD5 collisions with a packaged file is not held off by them.
//
// Threads: as IVerdictSource. Errors: none that matter; Note() says what was passed over.
#ifndef HOST_VERDICT_PACKAGESOURCE_H
#define HOST_VERDICT_PACKAGESOURCE_H

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/verdict/DigestIndex.h"
#include "host/verdict/IVerdictSource.h"

class PackageSource : public IVerdictSource {
public:
    // Reads every *.md5sums file of strInfoDir. Never null: without the directory the source is
    // empty, and Note() says why.
    static std::unique_ptr<PackageSource> Load(
        const std::string& strInfoDir = "/var/lib/dpkg/info");

    // The owner is the package's name without its architecture. Of several packages with the
    // same file the first in alphabetical order.
    std::optional<Verdict> Lookup(const ProgramKey& key) const override;

    size_t Count() const { return m_md5.Count(); }  // different digests
    size_t PackageCount() const { return m_packages.size(); }

    // A warning for the user, "" when all is well.
    const std::string& Note() const { return m_strNote; }

    // True when a package's file strPath (without a leading "/") lies where programs and
    // libraries do: below a folder named bin, sbin, lib, lib32, lib64, libx32, libexec or games
    // anywhere in it, or anywhere below opt; never below usr/share/doc, man, info or locale,
    // usr/include or usr/src, whatever the folders in there are called.
    static bool IsProgramPath(std::string_view strPath);

private:
    PackageSource() = default;

    void AddFile(const std::string& strFile, uint32_t nPackage);
    bool AddLine(std::string_view strLine, uint32_t nPackage);

    std::vector<std::string> m_packages;  // an owner is an index into it
    DigestIndex<16> m_md5;
    size_t m_nPassedOver = 0;     // files that could not be read and lines that make no sense
    std::string m_strPassedOver;  // the first of the files concerned
    std::string m_strNote;
};

#endif
