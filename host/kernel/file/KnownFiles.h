// What is known of the regular files, links and named pipes in some directories and below them, for
// a comparison with what is there later.
//
// What events report becomes known as well, in two steps: a file that was reported is looked at,
// and that is taken for known once everything until that look was reported. A change that was lost
// is thus never taken for one that was reported.
//
// Threads: one object, one thread. Errors: none but std::bad_alloc.
// Memory: nMost files and directories; those beyond are not known.
#ifndef HOST_KERNEL_FILE_KNOWNFILES_H
#define HOST_KERNEL_FILE_KNOWNFILES_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "host/event/FileOperation.h"
#include "host/kernel/file/DirectoryNames.h"
#include "host/program/FileLook.h"

// A file that is not as it was known.
struct FoundFile {
    FileAct eAct = FILE_CREATE;  // made, or another one by that name; written; removed
    std::string strPath;
    uint64_t nInode = 0;
};

class KnownFiles {
public:
    // fnWanted: whether a file with this path is to be known.
    KnownFiles(FileLook fnLook, NamesIn fnNames,
               std::function<bool(const std::string& strPath)> fnWanted, size_t nMost = 20000);

    // What is other than known in these directories, in the order of the paths; from now on it is
    // known as it is. What was reported before and is not settled yet counts as not known.
    std::vector<FoundFile> Compare(const std::vector<std::string>& directories);

    // An operation on strPath was reported; nInode: 0 when it is not known.
    void Reported(const std::string& strPath, uint64_t nInode = 0);
    // Everything that happened until now was reported, and nothing of it was lost.
    void Settle();

    // The path of a file with this inode number, perhaps of another file system; "" when none is
    // known. Of several, and of one that is not known yet, the last that was reported.
    std::string NameOf(uint64_t nInode) const;
    // The files with more than one link that became known since the last call.
    std::vector<std::string> TakeLinked() { return std::exchange(m_linked, {}); }
    size_t Size() const { return m_known.size(); }
    bool IsFull() const { return m_bFull; }  // some files are not known

private:
    struct Known {
        uint64_t nDevice = 0;
        uint64_t nInode = 0;
        uint64_t nSize = 0;
        int64_t nWritten = 0;  // ns since 1970
        int64_t nChanged = 0;
        bool bLinked = false;
    };

    std::optional<Known> Look(const std::string& strPath, bool& bDirectory) const;
    void CompareKnown(std::vector<FoundFile>& found);
    void FindNew(std::vector<std::string> directories, std::vector<FoundFile>& found);
    void Note(const std::string& strPath, const Known& known);
    bool Add(const std::string& strPath, const Known& known);
    void AddName(uint64_t nInode, const std::string& strPath);
    void Forget(const std::string& strPath);

    const FileLook m_fnLook;
    const NamesIn m_fnNames;
    const std::function<bool(const std::string&)> m_fnWanted;
    const size_t m_nMost;
    std::map<std::string, Known> m_known;
    std::set<std::string> m_reported;                      // since the last settlement
    std::map<std::string, std::optional<Known>> m_looked;  // at it; nothing: it is gone
    std::unordered_map<uint64_t, std::string> m_names;     // by inode; some are of the past
    std::vector<std::string> m_linked;
    bool m_bFull = false;
};

#endif
