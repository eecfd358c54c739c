#include "framework/sqlite/FileFence.h"

#include <sqlite3.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstring>
#include <string>

// One per connection, because SQLite tells the calls below nothing but a name.
struct FileFence {
    sqlite3_vfs vfs = {};  // first: SQLite hands this out
    sqlite3_vfs* pSystem = nullptr;
    std::string strName;      // unlike any other's while it is registered
    std::string strDatabase;  // from its opening on
};

namespace {

FileFence& FenceOf(sqlite3_vfs* pVfs) {
    return *reinterpret_cast<FileFence*>(pVfs);
}

bool IsBeside(const FileFence& fence, const char* pszName) {
    const size_t nLength = fence.strDatabase.size();
    return nLength != 0 && strncmp(pszName, fence.strDatabase.c_str(), nLength) == 0 &&
           (strcmp(pszName + nLength, "-journal") == 0 || strcmp(pszName + nLength, "-wal") == 0);
}

// True when there is something that is no regular file. The database may be linked to.
bool IsIrregular(const char* pszName, bool bFollow) {
    struct stat status = {};
    const int nResult = bFollow ? stat(pszName, &status) : lstat(pszName, &status);
    return nResult == 0 && !S_ISREG(status.st_mode);
}

bool MayOpen(FileFence& fence, const char* pszName, int nFlags) {
    if (pszName == nullptr) {
        return false;  // a temporary file: the stores' own statements need none
    }
    if ((nFlags & SQLITE_OPEN_MAIN_DB) != 0) {
        fence.strDatabase = pszName;
        return !IsIrregular(pszName, true);
    }
    if (!IsBeside(fence, pszName)) {
        return false;
    }
    // The journal that every change makes is not looked at: opened for reading and writing it
    // never waits, and each look is a call to the kernel.
    const bool bNewJournal =
        (nFlags & SQLITE_OPEN_MAIN_JOURNAL) != 0 && (nFlags & SQLITE_OPEN_CREATE) != 0;
    return bNewJournal || !IsIrregular(pszName, false);
}

int Open(sqlite3_vfs* pVfs, const char* pszName, sqlite3_file* pFile, int nFlags, int* pOutFlags) {
    FileFence& fence = FenceOf(pVfs);
    try {
        if (MayOpen(fence, pszName, nFlags)) {
            return fence.pSystem->xOpen(fence.pSystem, pszName, pFile, nFlags, pOutFlags);
        }
    } catch (...) {
        pFile->pMethods = nullptr;
        return SQLITE_NOMEM;
    }
    pFile->pMethods = nullptr;  // nothing to close
    return SQLITE_CANTOPEN;
}

int Delete(sqlite3_vfs* pVfs, const char* pszName, int nSyncDir) {
    FileFence& fence = FenceOf(pVfs);
    return IsBeside(fence, pszName) ? fence.pSystem->xDelete(fence.pSystem, pszName, nSyncDir)
                                    : SQLITE_IOERR_DELETE;
}

int Access(sqlite3_vfs* pVfs, const char* pszName, int nFlags, int* pResult) {
    FileFence& fence = FenceOf(pVfs);
    if (IsBeside(fence, pszName) || fence.strDatabase == pszName) {
        return fence.pSystem->xAccess(fence.pSystem, pszName, nFlags, pResult);
    }
    *pResult = 0;
    return SQLITE_OK;
}

}  // namespace

int OpenFenced(const char* pszFile, int nFlags, sqlite3*& pDB, std::shared_ptr<FileFence>& pFence) {
    const auto pNew = std::make_shared<FileFence>();
    pNew->pSystem = sqlite3_vfs_find(nullptr);
    if (pNew->pSystem == nullptr) {
        return SQLITE_ERROR;
    }
    pNew->strName = "fenced " + std::to_string(reinterpret_cast<uintptr_t>(pNew.get()));
    pNew->vfs = *pNew->pSystem;
    pNew->vfs.pNext = nullptr;
    pNew->vfs.zName = pNew->strName.c_str();
    pNew->vfs.xOpen = Open;
    pNew->vfs.xDelete = Delete;
    pNew->vfs.xAccess = Access;
    int nResult = sqlite3_vfs_register(&pNew->vfs, 0);
    if (nResult != SQLITE_OK) {
        return nResult;
    }
    nResult = sqlite3_open_v2(pszFile, &pDB, nFlags, pNew->vfs.zName);
    (void)sqlite3_vfs_unregister(&pNew->vfs);  // the connection has it now
    pFence = pNew;
    return nResult;
}
