#include "host/kernel/file/DirectoryPathCache.h"

#include <algorithm>
#include <climits>
#include <utility>
#include <vector>

struct DirectoryPathCache::Node {
    using Children = std::map<std::string, std::unique_ptr<Node>, std::less<>>;

    Node* pParent = nullptr;
    std::string strName;
    std::string strHandle;  // "" when not known
    Children children;

    Node() = default;
    Node(const Node&) = delete;
    Node& operator=(const Node&) = delete;
    // Level by level: whoever makes the directories decides how deep they are.
    ~Node() {
        std::vector<Children> levels;
        levels.push_back(std::move(children));
        while (!levels.empty()) {
            const Children level = std::move(levels.back());
            levels.pop_back();
            for (const auto& child : level) {
                if (!child.second->children.empty()) {
                    levels.push_back(std::exchange(child.second->children, {}));
                }
            }
        }
    }
};

namespace {

template <class Node>
bool IsBelow(const Node* pNode, const Node* pAbove) {
    while (pNode != nullptr && pNode != pAbove) {
        pNode = pNode->pParent;
    }
    return pNode != nullptr;
}

// strName in the directory that pNode stands for; "" when that is longer than a path may be.
template <class Node>
std::string Join(const Node* pNode, std::string_view strName) {
    size_t nLength = strName.size() + 1;
    std::vector<const Node*> nodes;
    for (; pNode->pParent != nullptr; pNode = pNode->pParent) {
        nodes.push_back(pNode);
        nLength += pNode->strName.size() + 1;
        if (nLength >= PATH_MAX) {
            return "";
        }
    }
    std::string strPath;
    strPath.reserve(nLength);
    for (auto at = nodes.rbegin(); at != nodes.rend(); ++at) {
        strPath.append("/").append((*at)->strName);
    }
    if (strName != ".") {
        strPath.append("/").append(strName);
    }
    return strPath.empty() ? "/" : strPath;
}

}  // namespace

DirectoryPathCache::DirectoryPathCache(Opener fnOpen, size_t nMostNames)
    : m_fnOpen(std::move(fnOpen)), m_nMostNames(nMostNames), m_pRoot(std::make_unique<Node>()) {}

DirectoryPathCache::~DirectoryPathCache() = default;

void DirectoryPathCache::Clear() {
    m_byHandle.clear();
    m_pRoot = std::make_unique<Node>();
    m_nNames = 0;
}

std::string DirectoryPathCache::PathOf(const FileSpot& spot) {
    const Node* const pDirectory = Find(spot.strDirectory);
    return pDirectory == nullptr ? "" : Join(pDirectory, spot.strName);
}

DirectoryPathCache::Node* DirectoryPathCache::Known(std::string_view strHandle) const {
    const auto found = m_byHandle.find(strHandle);
    return found == m_byHandle.end() ? nullptr : found->second;
}

DirectoryPathCache::Node* DirectoryPathCache::KnownChild(const FileSpot& spot) const {
    const Node* const pParent = Known(spot.strDirectory);
    if (pParent == nullptr) {
        return nullptr;
    }
    const auto found = pParent->children.find(spot.strName);
    return found == pParent->children.end() ? nullptr : found->second.get();
}

DirectoryPathCache::Node* DirectoryPathCache::Find(std::string_view strHandle) {
    if (strHandle.empty()) {
        return nullptr;
    }
    if (Node* const pKnown = Known(strHandle)) {
        return pKnown;
    }
    const std::string strPath = m_fnOpen(strHandle);
    if (strPath.empty() || strPath[0] != '/') {
        return nullptr;
    }
    if (m_nNames >= m_nMostNames) {
        Clear();
    }
    Node* const pNode = Insert(strPath);
    SetHandle(pNode, strHandle);
    return pNode;
}

DirectoryPathCache::Node* DirectoryPathCache::Insert(const std::string& strPath) {
    Node* pNode = m_pRoot.get();
    for (size_t nBegin = 1; nBegin < strPath.size();) {
        const size_t nEnd = std::min(strPath.find('/', nBegin), strPath.size());
        pNode = Child(pNode, std::string_view(strPath).substr(nBegin, nEnd - nBegin));
        nBegin = nEnd + 1;
    }
    return pNode;
}

DirectoryPathCache::Node* DirectoryPathCache::Child(Node* pParent, std::string_view strName) {
    const auto found = pParent->children.find(strName);
    if (found != pParent->children.end()) {
        return found->second.get();
    }
    auto pNode = std::make_unique<Node>();
    pNode->pParent = pParent;
    pNode->strName = strName;
    ++m_nNames;
    return pParent->children.emplace(strName, std::move(pNode)).first->second.get();
}

// A handle that another node had is that node's no more: this is where the directory is now.
void DirectoryPathCache::SetHandle(Node* pNode, std::string_view strHandle) {
    if (strHandle.empty() || pNode->strHandle == strHandle) {
        return;
    }
    Node* const pOther = Known(strHandle);
    if (pOther != nullptr && IsBelow(pNode, pOther)) {
        m_byHandle.erase(strHandle);
        pOther->strHandle.clear();
    } else if (pOther != nullptr) {
        Drop(pOther);
    }
    m_byHandle.erase(pNode->strHandle);
    pNode->strHandle = strHandle;
    m_byHandle[pNode->strHandle] = pNode;
}

// Takes pNode and what is below it out of the handles.
void DirectoryPathCache::Forget(Node* pNode) {
    std::vector<Node*> nodes = {pNode};
    while (!nodes.empty()) {
        Node* const pNext = nodes.back();
        nodes.pop_back();
        if (!pNext->strHandle.empty()) {
            m_byHandle.erase(pNext->strHandle);
        }
        --m_nNames;
        for (const auto& child : pNext->children) {
            nodes.push_back(child.second.get());
        }
    }
}

void DirectoryPathCache::Drop(Node* pNode) {
    if (pNode->pParent != nullptr) {
        Forget(pNode);
        pNode->pParent->children.erase(pNode->strName);
    }
}

void DirectoryPathCache::Made(const FileSpot& spot, std::string_view strTarget) {
    if (m_nNames >= m_nMostNames) {
        Clear();
    }
    Node* const pParent = Find(spot.strDirectory);
    if (pParent == nullptr || strTarget.empty() || Join(pParent, spot.strName).empty()) {
        return;
    }
    Node* pNode = Child(pParent, spot.strName);
    if (!pNode->strHandle.empty() && pNode->strHandle != strTarget) {
        Drop(pNode);
        pNode = Child(pParent, spot.strName);
    }
    SetHandle(pNode, strTarget);
}

void DirectoryPathCache::Removed(const FileSpot& spot, std::string_view strTarget) {
    if (Node* const pNode = Known(strTarget)) {
        Drop(pNode);
        return;
    }
    if (!strTarget.empty()) {
        return;  // what has the name by now is another one
    }
    if (Node* const pNode = KnownChild(spot)) {
        Drop(pNode);
    }
}

// Goes by the directory's own handle where that is known: by name alone the second half of an
// exchange of two directories would undo the first.
void DirectoryPathCache::Moved(const FileSpot& from, const FileSpot& to,
                               std::string_view strTarget) {
    Node* const pTo = Find(to.strDirectory);
    Node* pNode = Known(strTarget);
    if (pNode == nullptr) {
        pNode = KnownChild(from);
        if (pNode != nullptr && !pNode->strHandle.empty() && !strTarget.empty()) {
            pNode = nullptr;  // another directory that has the name by now
        }
    }
    const bool bTooDeep = pTo != nullptr && Join(pTo, to.strName).empty();
    if (pTo == nullptr || bTooDeep || pNode == nullptr || pNode->pParent == nullptr ||
        IsBelow(pTo, pNode)) {
        if (pNode != nullptr) {
            Drop(pNode);
        }
        Made(to, strTarget);
        return;
    }
    const auto place = pTo->children.find(to.strName);
    if (place != pTo->children.end()) {
        if (place->second.get() == pNode) {
            return;  // looked up after it was moved
        }
        if (IsBelow(pNode, place->second.get())) {
            Drop(place->second.get());  // what is known of it contradicts the move
            Made(to, strTarget);
            return;
        }
        Drop(place->second.get());
    }
    auto handle = pNode->pParent->children.extract(pNode->strName);
    pNode->pParent = pTo;
    pNode->strName = to.strName;
    handle.key() = pNode->strName;
    pTo->children.insert(std::move(handle));
    SetHandle(pNode, strTarget);
}
