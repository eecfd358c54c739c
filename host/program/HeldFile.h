// A file of a program that was started, held by a descriptor: it stays readable when its name is
// gone or leads to another file.
//
// Threads: any. Errors: none but std::bad_alloc. Ownership: owns the descriptor and the link.
#ifndef HOST_PROGRAM_HELDFILE_H
#define HOST_PROGRAM_HELDFILE_H

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "host/base/UniqueFd.h"
#include "host/program/FileLook.h"
#include "host/program/FileVersion.h"
#include "host/program/PinDirectory.h"

class HeldFile {
public:
    static constexpr size_t MOST_LINKS = 16;  // names that one version of a file is reported by

    // fd: opened for reading. version: as the kernel named it at the start. status: that of fd when
    // it was held. bSure: it was known to be unchanged then; else it is the inode that was started,
    // and may have been written to since. strName: for people.
    HeldFile(UniqueFd fd, const FileVersion& version, const FileStatus& status, std::string strName,
             bool bSure = true)
        : m_fd(std::move(fd)),
          m_version(version),
          m_status(status),
          m_bSure(bSure),
          m_strName(std::move(strName)) {}

    HeldFile(const HeldFile&) = delete;
    HeldFile& operator=(const HeldFile&) = delete;

    int Descriptor() const { return m_fd.Get(); }
    const FileVersion& Version() const { return m_version; }
    const FileStatus& Status() const { return m_status; }
    bool IsSure() const { return m_bSure; }
    const std::string& Name() const { return m_strName; }

    // True once: a bad verdict on it was shown that is not that of its digest.
    bool MarkShown() const { return !m_bShown.exchange(true); }
    // Launches of it that nobody judged by its own digest, because too many waited.
    void AddUnjudged() const { ++m_nUnjudged; }
    bool TakeUnjudged() const {
        uint32_t nUnjudged = m_nUnjudged;
        while (nUnjudged > 0 && !m_nUnjudged.compare_exchange_weak(nUnjudged, nUnjudged - 1)) {
        }
        return nUnjudged > 0;
    }

    // Its own digest is known, and no bad program's: it is judged already.
    void Settle() const { m_bSettled = true; }
    bool IsSettled() const { return m_bSettled; }

    // The path under strName that leads to it whatever becomes of its names, made on first use; ""
    // when there can be none. On one thread.
    std::string LinkIn(PinDirectory& directory, const std::string& strName) const {
        const auto found = std::find_if(m_links.begin(), m_links.end(),
                                        [&](const Link& link) { return link.first == strName; });
        if (found != m_links.end()) {
            return found->second->Path();
        }
        auto pLink = m_links.size() < MOST_LINKS ? directory.Make(Descriptor(), strName) : nullptr;
        if (pLink == nullptr) {
            return "";
        }
        m_links.emplace_back(strName, std::move(pLink));
        return m_links.back().second->Path();
    }

private:
    using Link = std::pair<std::string, std::unique_ptr<PinLink>>;

    const UniqueFd m_fd;
    const FileVersion m_version;
    const FileStatus m_status;
    const bool m_bSure;
    const std::string m_strName;
    mutable std::atomic<uint32_t> m_nUnjudged{0};
    mutable std::atomic<bool> m_bShown{false};
    mutable std::atomic<bool> m_bSettled{false};
    mutable std::vector<Link> m_links;  // last: they go before the descriptor
};

using HeldFileRef = std::shared_ptr<const HeldFile>;

#endif
