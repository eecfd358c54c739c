#include "tests/support/bpf/FakeBpf.h"

#include <bpf/bpf.h>
#include <bpf/libbpf.h>
#include <dlfcn.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

// The library's types are only named in its headers; these are what a FakeBpf hands out.
struct bpf_map {
    std::string strName;
};
struct bpf_program {
    std::string strName;
    int nFd;
};
struct bpf_link {
    std::string strProgram;
};
struct bpf_object {
    std::map<std::string, bpf_map> maps;
    std::map<std::string, bpf_program> programs;
};
struct ring_buffer {
    ring_buffer_sample_fn pfnSample;
    void* pContext;
};

namespace {

FakeBpf* g_pFake = nullptr;

constexpr int RING_FD = 101;
constexpr int COUNTS_FD = 102;
constexpr int PROGRAM_FDS = 200;  // the first one

template <class Function>
Function* Real(const char* pszName) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, pszName));
}

int Failed(int nError) {
    errno = nError;
    return -nError;
}

int Told(const ring_buffer& ring, std::string& strRecord) {
    try {
        return ring.pfnSample(ring.pContext, strRecord.data(), strRecord.size());
    } catch (...) {
        ++g_pFake->nLeaks;
        return -EFAULT;
    }
}

}  // namespace

FakeBpf::FakeBpf() : nReader(memfd_create("reader", MFD_CLOEXEC)) {
    g_pFake = this;
    if (nReader < 0 || ftruncate(nReader, sizeof(uint32_t)) != 0) {
        std::abort();
    }
}

FakeBpf::~FakeBpf() {
    (void)close(nReader);
    g_pFake = nullptr;
}

FakeBpf* FakeBpf::Current() {
    return g_pFake;
}

#define REAL(name) Real<decltype(name)>(#name)

extern "C" {

bpf_object* bpf_object__open_mem(const void* pData, size_t nSize,
                                 const bpf_object_open_opts* pOptions) {
    if (g_pFake == nullptr) {
        return REAL(bpf_object__open_mem)(pData, nSize, pOptions);
    }
    if (g_pFake->nOpenError != 0) {
        (void)Failed(g_pFake->nOpenError);
        return nullptr;
    }
    g_pFake->strObject.assign(static_cast<const char*>(pData), nSize);
    ++g_pFake->nObjects;
    return new bpf_object();
}

void bpf_object__close(bpf_object* pObject) {
    if (g_pFake == nullptr) {
        REAL(bpf_object__close)(pObject);
    } else if (pObject != nullptr) {
        --g_pFake->nObjects;
        delete pObject;
    }
}

int bpf_object__load(bpf_object* pObject) {
    if (g_pFake == nullptr) {
        return REAL(bpf_object__load)(pObject);
    }
    ++g_pFake->nLoads;
    return Failed(g_pFake->nLoadError);
}

bpf_map* bpf_object__find_map_by_name(const bpf_object* pObject, const char* pszName) {
    if (g_pFake == nullptr) {
        return REAL(bpf_object__find_map_by_name)(pObject, pszName);
    }
    bpf_map& map = const_cast<bpf_object*>(pObject)->maps[pszName];
    map.strName = pszName;
    return &map;
}

int bpf_map__set_max_entries(bpf_map* pMap, __u32 nEntries) {
    if (g_pFake == nullptr) {
        return REAL(bpf_map__set_max_entries)(pMap, nEntries);
    }
    g_pFake->maxEntries[pMap->strName] = nEntries;
    return 0;
}

int bpf_map__fd(const bpf_map* pMap) {
    if (g_pFake == nullptr) {
        return REAL(bpf_map__fd)(pMap);
    }
    if (pMap->strName == "reader") {
        return g_pFake->bReaderRefused ? -ENOENT : g_pFake->nReader;
    }
    return pMap->strName == "ring" ? RING_FD : pMap->strName == "counts" ? COUNTS_FD : -ENOENT;
}

bpf_program* bpf_object__find_program_by_name(const bpf_object* pObject, const char* pszName) {
    if (g_pFake == nullptr) {
        return REAL(bpf_object__find_program_by_name)(pObject, pszName);
    }
    const int nFd = PROGRAM_FDS + static_cast<int>(g_pFake->found.size());
    g_pFake->found.emplace_back(pszName);
    auto& programs = const_cast<bpf_object*>(pObject)->programs;
    return &(programs[pszName] = bpf_program{pszName, nFd});
}

int bpf_program__fd(const bpf_program* pProgram) {
    return g_pFake == nullptr ? REAL(bpf_program__fd)(pProgram) : pProgram->nFd;
}

bpf_link* bpf_program__attach(const bpf_program* pProgram) {
    if (g_pFake == nullptr) {
        return REAL(bpf_program__attach)(pProgram);
    }
    const auto found = g_pFake->attachErrors.find(pProgram->strName);
    if (found != g_pFake->attachErrors.end()) {
        (void)Failed(found->second);
        return nullptr;
    }
    g_pFake->attached.push_back(pProgram->strName);
    return new bpf_link{pProgram->strName};
}

int bpf_link__destroy(bpf_link* pLink) {
    if (g_pFake == nullptr) {
        return REAL(bpf_link__destroy)(pLink);
    }
    if (pLink != nullptr) {
        auto& attached = g_pFake->attached;
        attached.erase(std::find(attached.begin(), attached.end(), pLink->strProgram));
        g_pFake->detached.push_back(pLink->strProgram);
        delete pLink;
    }
    return 0;
}

ring_buffer* ring_buffer__new(int nMap, ring_buffer_sample_fn pfnSample, void* pContext,
                              const ring_buffer_opts* pOptions) {
    if (g_pFake == nullptr) {
        return REAL(ring_buffer__new)(nMap, pfnSample, pContext, pOptions);
    }
    if (g_pFake->nRingError != 0 || nMap != RING_FD) {
        (void)Failed(nMap == RING_FD ? g_pFake->nRingError : EBADF);
        return nullptr;
    }
    ++g_pFake->nRings;
    return new ring_buffer{pfnSample, pContext};
}

void ring_buffer__free(ring_buffer* pRing) {
    if (g_pFake == nullptr) {
        REAL(ring_buffer__free)(pRing);
    } else if (pRing != nullptr) {
        --g_pFake->nRings;
        delete pRing;
    }
}

// As the library does: a record is taken from the ring before its callback can refuse the next.
int ring_buffer__consume(ring_buffer* pRing) {
    if (g_pFake == nullptr) {
        return REAL(ring_buffer__consume)(pRing);
    }
    int nCount = 0;
    while (!g_pFake->records.empty()) {
        std::string strRecord = g_pFake->records.front();
        g_pFake->records.pop_front();
        const int nResult = Told(*pRing, strRecord);
        if (nResult < 0) {
            return nResult;
        }
        ++nCount;
    }
    return nCount;
}

int libbpf_num_possible_cpus() {
    return g_pFake == nullptr ? REAL(libbpf_num_possible_cpus)() : g_pFake->nProcessors;
}

int bpf_map_lookup_elem(int nMap, const void* pKey, void* pValue) {
    if (g_pFake == nullptr) {
        return REAL(bpf_map_lookup_elem)(nMap, pKey, pValue);
    }
    if (g_pFake->fnBeforeLookup) {
        g_pFake->fnBeforeLookup();
    }
    uint32_t nKey = 0;
    std::memcpy(&nKey, pKey, sizeof(nKey));
    const auto found = g_pFake->counts.find(nKey);
    if (nMap != COUNTS_FD || found == g_pFake->counts.end()) {
        return Failed(ENOENT);
    }
    std::memcpy(pValue, found->second.data(), found->second.size() * sizeof(uint64_t));
    return 0;
}

int bpf_obj_get_info_by_fd(int nFd, void* pInfo, __u32* pLength) {
    if (g_pFake == nullptr) {
        return REAL(bpf_obj_get_info_by_fd)(nFd, pInfo, pLength);
    }
    const size_t nProgram = static_cast<size_t>(nFd - PROGRAM_FDS);
    if (g_pFake->bInfoRefused || nProgram >= g_pFake->found.size()) {
        return Failed(EPERM);
    }
    bpf_prog_info info = {};
    info.recursion_misses = g_pFake->missed[g_pFake->found[nProgram]];
    std::memcpy(pInfo, &info, std::min<size_t>(*pLength, sizeof(info)));
    return 0;
}

}  // extern "C"
