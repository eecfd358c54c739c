// The paths of directories by their handles, kept in step with the events reported: a directory
// made is put in, a removed one taken out, a moved one takes everything below it along.
//
// The known paths are a tree of names, so that a move changes one node however much is below it.
//
// Threads: one. Errors: none but std::bad_alloc.
// Memory: a bounded number of names; when that is reached it begins anew.
#ifndef HOST_KERNEL_FILE_DIRECTORYPATHCACHE_H
#define HOST_KERNEL_FILE_DIRECTORYPATHCACHE_H

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>

#include "host/kernel/file/FileEvent.h"

class DirectoryPathCache {
public:
    // Where the directory is now, absolute; "" when it is gone.
    using Opener = std::function<std::string(std::string_view strHandle)>;

    explicit DirectoryPathCache(Opener fnOpen, size_t nMostNames = 65536);
    ~DirectoryPathCache();

    DirectoryPathCache(const DirectoryPathCache&) = delete;
    DirectoryPathCache& operator=(const DirectoryPathCache&) = delete;

    // "" when the directory is not known and gone, or when the path is longer than PATH_MAX.
    std::string PathOf(const FileSpot& spot);

    // What is reported of directories. strTarget is the directory's own handle, "" when not known.
    void Made(const FileSpot& spot, std::string_view strTarget);
    void Removed(const FileSpot& spot, std::string_view strTarget);
    void Moved(const FileSpot& from, const FileSpot& to, std::string_view strTarget);

    void Clear();
    size_t Size() const { return m_nNames; }

private:
    struct Node;

    Node* Find(std::string_view strHandle);
    Node* Known(std::string_view strHandle) const;
    Node* KnownChild(const FileSpot& spot) const;
    Node* Insert(const std::string& strPath);
    Node* Child(Node* pParent, std::string_view strName);
    void SetHandle(Node* pNode, std::string_view strHandle);
    void Forget(Node* pNode);
    void Drop(Node* pNode);

    const Opener m_fnOpen;
    const size_t m_nMostNames;
    std::unique_ptr<Node> m_pRoot;
    std::unordered_map<std::string_view, Node*> m_byHandle;  // views into the nodes' handles
    size_t m_nNames = 0;
};

#endif
