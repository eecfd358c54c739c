#include "tests/faults/FaultVfs.h"

#include <signal.h>
#include <sqlite3.h>
#include <unistd.h>

#include <atomic>
#include <cstring>

namespace {

enum Call { CALL_OPEN, CALL_WRITE, CALL_UNLOCK, CALL_OTHER };

FaultPlan s_plan;
char* s_pszStruck = nullptr;
std::atomic<long> s_nCalls{0};
std::atomic<bool> s_bStruck{false};

bool Concerns(Call eCall) {
    switch (s_plan.eKind) {
        case FaultPlan::FULL:
        case FaultPlan::SHORT:
        case FaultPlan::TORN_KILL:
            return eCall == CALL_WRITE;
        case FaultPlan::CANTOPEN:
            return eCall == CALL_OPEN;
        case FaultPlan::FAIL:
            return eCall != CALL_UNLOCK;
        case FaultPlan::UNLOCK:
            return eCall == CALL_UNLOCK;
        default:
            return true;
    }
}

[[noreturn]] void Die() {
    (void)kill(getpid(), SIGKILL);
    for (;;) {
        (void)pause();
    }
}

bool Strikes(Call eCall, const char* pszName) {
    if (s_plan.nAt == 0 || !Concerns(eCall)) {
        return false;
    }
    const long nCall = ++s_nCalls;
    if (nCall != s_plan.nAt && !(s_plan.bForGood && nCall > s_plan.nAt)) {
        return false;
    }
    s_bStruck = true;
    if (s_pszStruck != nullptr) {
        (void)strcpy(s_pszStruck, pszName);
    }
    if (s_plan.eKind == FaultPlan::KILL) {
        Die();
    }
    return true;
}

struct File {
    sqlite3_file base;
    sqlite3_file* Real() { return reinterpret_cast<sqlite3_file*>(this + 1); }
};

sqlite3_file* Real(sqlite3_file* pFile) {
    return reinterpret_cast<File*>(pFile)->Real();
}

int Close(sqlite3_file* pFile) {
    return Real(pFile)->pMethods->xClose(Real(pFile));  // as the system does, it always lets go
}

int Read(sqlite3_file* pFile, void* pBytes, int nBytes, sqlite3_int64 nOffset) {
    const int nResult = Real(pFile)->pMethods->xRead(Real(pFile), pBytes, nBytes, nOffset);
    return Strikes(CALL_OTHER, "read") ? SQLITE_IOERR_READ : nResult;
}

int Write(sqlite3_file* pFile, const void* pBytes, int nBytes, sqlite3_int64 nOffset) {
    const auto pfnWrite = Real(pFile)->pMethods->xWrite;
    if (!Strikes(CALL_WRITE, "write")) {
        return pfnWrite(Real(pFile), pBytes, nBytes, nOffset);
    }
    if (s_plan.eKind == FaultPlan::SHORT || s_plan.eKind == FaultPlan::TORN_KILL) {
        (void)pfnWrite(Real(pFile), pBytes, nBytes / 2, nOffset);
    }
    if (s_plan.eKind == FaultPlan::TORN_KILL) {
        Die();
    }
    return s_plan.eKind == FaultPlan::FAIL ? SQLITE_IOERR_WRITE : SQLITE_FULL;
}

int Truncate(sqlite3_file* pFile, sqlite3_int64 nSize) {
    return Strikes(CALL_OTHER, "truncate") ? SQLITE_IOERR_TRUNCATE
                                           : Real(pFile)->pMethods->xTruncate(Real(pFile), nSize);
}

int Sync(sqlite3_file* pFile, int nFlags) {
    return Strikes(CALL_OTHER, "sync") ? SQLITE_IOERR_FSYNC
                                       : Real(pFile)->pMethods->xSync(Real(pFile), nFlags);
}

int FileSize(sqlite3_file* pFile, sqlite3_int64* pSize) {
    return Strikes(CALL_OTHER, "size") ? SQLITE_IOERR_FSTAT
                                       : Real(pFile)->pMethods->xFileSize(Real(pFile), pSize);
}

int Lock(sqlite3_file* pFile, int nLevel) {
    return Strikes(CALL_OTHER, "lock") ? SQLITE_IOERR_LOCK
                                       : Real(pFile)->pMethods->xLock(Real(pFile), nLevel);
}

int Unlock(sqlite3_file* pFile, int nLevel) {
    const int nResult = Real(pFile)->pMethods->xUnlock(Real(pFile), nLevel);
    return Strikes(CALL_UNLOCK, "unlock") ? SQLITE_IOERR_UNLOCK : nResult;
}

int CheckReservedLock(sqlite3_file* pFile, int* pResult) {
    return Strikes(CALL_OTHER, "look for a lock")
               ? SQLITE_IOERR_CHECKRESERVEDLOCK
               : Real(pFile)->pMethods->xCheckReservedLock(Real(pFile), pResult);
}

int FileControl(sqlite3_file* pFile, int nOperation, void* pArg) {
    return Real(pFile)->pMethods->xFileControl(Real(pFile), nOperation, pArg);
}

int SectorSize(sqlite3_file* pFile) {
    return Real(pFile)->pMethods->xSectorSize(Real(pFile));
}

int DeviceCharacteristics(sqlite3_file* pFile) {
    return Real(pFile)->pMethods->xDeviceCharacteristics(Real(pFile));
}

// Without shared memory and maps: the stores' journals do without them.
const sqlite3_io_methods METHODS = {
    1,
    Close,
    Read,
    Write,
    Truncate,
    Sync,
    FileSize,
    Lock,
    Unlock,
    CheckReservedLock,
    FileControl,
    SectorSize,
    DeviceCharacteristics,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
};

sqlite3_vfs* s_pReal = nullptr;
sqlite3_vfs s_vfs;

int Open(sqlite3_vfs*, const char* pszName, sqlite3_file* pFile, int nFlags, int* pOutFlags) {
    pFile->pMethods = nullptr;
    if (Strikes(CALL_OPEN, "open")) {
        return SQLITE_CANTOPEN;
    }
    const int nResult = s_pReal->xOpen(s_pReal, pszName, Real(pFile), nFlags, pOutFlags);
    pFile->pMethods = Real(pFile)->pMethods != nullptr ? &METHODS : nullptr;
    return nResult;
}

int Delete(sqlite3_vfs*, const char* pszName, int nSyncDir) {
    return Strikes(CALL_OTHER, "delete") ? SQLITE_IOERR_DELETE
                                         : s_pReal->xDelete(s_pReal, pszName, nSyncDir);
}

int Access(sqlite3_vfs*, const char* pszName, int nFlags, int* pResult) {
    return Strikes(CALL_OTHER, "look for a file")
               ? SQLITE_IOERR_ACCESS
               : s_pReal->xAccess(s_pReal, pszName, nFlags, pResult);
}

}  // namespace

void FaultVfs::Register() {
    s_pReal = sqlite3_vfs_find(nullptr);
    s_vfs = *s_pReal;
    s_vfs.zName = "faults";
    s_vfs.szOsFile = static_cast<int>(sizeof(File)) + s_pReal->szOsFile;
    s_vfs.pNext = nullptr;
    s_vfs.xOpen = Open;
    s_vfs.xDelete = Delete;
    s_vfs.xAccess = Access;
    (void)sqlite3_vfs_register(&s_vfs, 1);
}

void FaultVfs::NoteInto(char* pszStruck) {
    s_pszStruck = pszStruck;
}

void FaultVfs::Arm(const FaultPlan& plan) {
    s_plan = plan;
    s_nCalls = 0;
    s_bStruck = false;
}

bool FaultVfs::Disarm() {
    s_plan.nAt = 0;
    return s_bStruck;
}

bool FaultVfs::HasStruck() {
    return s_bStruck;
}
