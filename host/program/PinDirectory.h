// Paths that lead to held files whose own names do not lead there, for whoever takes nothing but a
// path: links below a directory of this run.
//
//   <parent>/pins-<random>/<number>/<true path>  ->  /proc/self/fd/<descriptor>
//
// The true path stands in it whole, so that rules about names and users come out as for the file's
// own. A link is gone before its descriptor is closed, and the directory of an earlier run before
// this one begins, so that no such path ever leads to another file.
//
// Threads: Open and Make one at a time; links may go and names be read on any.
// Errors: Open's text names the directory and what to do; without a link there is none.
// Ownership: a link does not need the directory's object.
#ifndef HOST_PROGRAM_PINDIRECTORY_H
#define HOST_PROGRAM_PINDIRECTORY_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

// One link, with the directories above it; they go with it.
class PinLink {
public:
    // pCount: goes down by one with it.
    PinLink(std::string strRoot, std::string strPath, std::shared_ptr<std::atomic<size_t>> pCount)
        : m_strRoot(std::move(strRoot)),
          m_strPath(std::move(strPath)),
          m_pCount(std::move(pCount)) {}
    ~PinLink();

    PinLink(const PinLink&) = delete;
    PinLink& operator=(const PinLink&) = delete;

    const std::string& Path() const { return m_strPath; }

private:
    const std::string m_strRoot;  // of this link alone
    const std::string m_strPath;
    const std::shared_ptr<std::atomic<size_t>> m_pCount;
};

class PinDirectory {
public:
    // Names in a path at most, and bytes: each name costs a directory.
    static constexpr size_t MOST_NAMES = 20;
    static constexpr size_t MOST_BYTES = 3500;
    static constexpr size_t MOST_LINKS = 4096;  // at once

    PinDirectory() = default;
    ~PinDirectory();

    PinDirectory(const PinDirectory&) = delete;
    PinDirectory& operator=(const PinDirectory&) = delete;

    // Removes what earlier runs left in strParent, absolute, and makes the directory of this one.
    bool Open(const std::string& strParent, std::string& strError);

    // A link to descriptor nFd of this process. Null when strName is no absolute path, has too many
    // or too long names, when too many links are there, or it cannot be made.
    std::unique_ptr<PinLink> Make(int nFd, const std::string& strName);

    // strText, in which paths of links are put back to the files' own, also where names before them
    // were masked.
    std::string TrueNames(const std::string& strText) const;

private:
    std::string m_strDirectory;
    std::string m_strMark;  // "/pins-<random>/"
    uint64_t m_nMade = 0;
    const std::shared_ptr<std::atomic<size_t>> m_pCount = std::make_shared<std::atomic<size_t>>(0);
};

#endif
