#include "host/kernel/launch/LaunchSensor.h"

#include <cerrno>
#include <cstring>

std::string LaunchRefusal(int nError, bool bTypes, const std::string& strLockdown) {
    const std::string strText =
        std::string("the kernel refuses the launch sensor: ") + std::strerror(nError);
    if (nError == EPERM || nError == EACCES) {
        return strText +
               "; run as root, or with the capabilities CAP_BPF, CAP_PERFMON and CAP_SYS_PTRACE";
    }
    if (strLockdown.find("[confidentiality]") != std::string::npos) {
        return strText +
               "; it is locked down (confidentiality) and lets no program read its memory: it "
               "needs "
               "a start with lockdown=integrity or none";
    }
    if (!bTypes) {
        return strText +
               "; there is no /sys/kernel/btf/vmlinux: it needs a kernel with "
               "CONFIG_DEBUG_INFO_BTF, as Debian's are";
    }
    return strText +
           "; it needs Linux 5.8 or newer with CONFIG_BPF_SYSCALL and CONFIG_BPF_EVENTS, as "
           "Debian's kernels are; scan and replay work without it";
}

#ifdef TEVMON_LAUNCH_SENSOR
#include <bpf/bpf.h>
#include <bpf/libbpf.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <new>
#include <vector>

#include "host/kernel/bpf/launch_record.h"
#include "host/kernel/launch/ProcessLook.h"

namespace {

alignas(8) constexpr unsigned char OBJECT[] = {
#include "host/kernel/bpf/launch_object.inc"
};

constexpr const char* PROGRAMS[] = {"on_exec", "on_fork", "on_exit"};
constexpr size_t READER_BYTES = sizeof(uint32_t);  // of the map: its first page is mapped
constexpr size_t PROGRAM_COUNT = sizeof(PROGRAMS) / sizeof(PROGRAMS[0]);

int PrintNothing(libbpf_print_level /*eLevel*/, const char* /*pszFormat*/, va_list /*args*/) {
    return 0;
}

class KernelSensor : public ILaunchSensor {
public:
    KernelSensor() = default;
    ~KernelSensor() override {
        Detach();
        ring_buffer__free(m_pRing);
        if (m_pSleeps != MAP_FAILED) {
            (void)munmap(m_pSleeps, READER_BYTES);
        }
        bpf_object__close(m_pObject);
    }

    KernelSensor(const KernelSensor&) = delete;
    KernelSensor& operator=(const KernelSensor&) = delete;

    bool Open(std::string& strError) override;
    void Drain(const Sink& fnSink) override;
    int Descriptor() const override { return ring_buffer__epoll_fd(m_pRing); }
    void SetSleeping(bool bSleeping) override {
        __atomic_store_n(static_cast<uint32_t*>(m_pSleeps), bSleeping ? 1u : 0u, __ATOMIC_SEQ_CST);
    }
    void Detach() override;
    SensorCounts Counts() const override;
    std::string Name() const override { return "eBPF"; }
    std::string Limits() const override {
        return "arguments beyond 16 KiB are cut; starts while its buffer of 8 MiB is full are lost "
               "and counted";
    }

private:
    static int OnRecord(void* pContext, void* pData, size_t nSize);
    bool Load(std::string& strError);
    bool Attach(std::string& strError);
    int MapFd(const char* pszName) const;
    uint64_t Sum(uint32_t nCounter) const;

    bpf_object* m_pObject = nullptr;
    ring_buffer* m_pRing = nullptr;
    bpf_link* m_links[PROGRAM_COUNT] = {};
    void* m_pSleeps = MAP_FAILED;  // a word that the kernel's program reads
    int m_nExecProgram = -1;
    int m_nCounts = -1;
};

std::string Refusal(int nError) {
    return LaunchRefusal(nError, access("/sys/kernel/btf/vmlinux", R_OK) == 0,
                         process_look::ReadFile(AT_FDCWD, "/sys/kernel/security/lockdown", 256));
}

bool KernelSensor::Open(std::string& strError) {
    libbpf_set_print(PrintNothing);
    return Load(strError) && Attach(strError);
}

bool KernelSensor::Load(std::string& strError) {
    bpf_object_open_opts options = {};
    options.sz = sizeof(options);
    options.object_name = "tevmon_launch";
    m_pObject = bpf_object__open_mem(OBJECT, sizeof(OBJECT), &options);
    if (m_pObject == nullptr) {
        strError = Refusal(errno);
        return false;
    }
    bpf_map* const pScratches = bpf_object__find_map_by_name(m_pObject, "scratches");
    const int nProcessors = libbpf_num_possible_cpus();
    int nError = nProcessors < 1
                     ? nProcessors
                     : bpf_map__set_max_entries(pScratches, static_cast<uint32_t>(nProcessors));
    nError = nError < 0 ? nError : bpf_object__load(m_pObject);
    if (nError < 0) {
        strError = Refusal(-nError);
        return false;
    }
    m_nCounts = MapFd("counts");
    m_pSleeps = mmap(nullptr, READER_BYTES, PROT_READ | PROT_WRITE, MAP_SHARED, MapFd("reader"), 0);
    m_pRing = m_pSleeps == MAP_FAILED ? nullptr
                                      : ring_buffer__new(MapFd("ring"), OnRecord, this, nullptr);
    if (m_pRing == nullptr) {
        strError = Refusal(errno);
        return false;
    }
    return true;
}

// Copies and ends first: a launch that is reported has its parent reported already.
bool KernelSensor::Attach(std::string& strError) {
    for (size_t i = PROGRAM_COUNT; i-- > 0;) {
        bpf_program* const pProgram = bpf_object__find_program_by_name(m_pObject, PROGRAMS[i]);
        m_links[i] = bpf_program__attach(pProgram);
        if (m_links[i] == nullptr) {
            strError = Refusal(errno);
            return false;
        }
        m_nExecProgram = bpf_program__fd(pProgram);
    }
    return true;
}

int KernelSensor::MapFd(const char* pszName) const {
    return bpf_map__fd(bpf_object__find_map_by_name(m_pObject, pszName));
}

struct Draining {
    const ILaunchSensor::Sink* pSink;
    bool bFailed;
};

thread_local Draining* g_pDraining = nullptr;

// No exception may pass through the library's frames.
int KernelSensor::OnRecord(void* /*pContext*/, void* pData, size_t nSize) {
    launch_life head = {};
    if (nSize == sizeof(head)) {
        std::memcpy(&head, pData, sizeof(head));
    }
    if (head.type == LAUNCH_WAKE) {
        return 0;
    }
    try {
        return (*g_pDraining->pSink)(pData, nSize) ? 0 : -ECANCELED;
    } catch (...) {
        g_pDraining->bFailed = true;
        return -ENOMEM;
    }
}

void KernelSensor::Drain(const Sink& fnSink) {
    Draining draining = {&fnSink, false};
    g_pDraining = &draining;
    (void)ring_buffer__consume(m_pRing);  // a negative number is the sink's own "no more"
    g_pDraining = nullptr;
    if (draining.bFailed) {
        throw std::bad_alloc();
    }
}

void KernelSensor::Detach() {
    for (bpf_link*& pLink : m_links) {
        (void)bpf_link__destroy(pLink);  // null is allowed; a link that was never there
        pLink = nullptr;
    }
}

uint64_t KernelSensor::Sum(uint32_t nCounter) const {
    std::vector<uint64_t> values(static_cast<size_t>(libbpf_num_possible_cpus()));
    uint64_t nSum = 0;
    if (bpf_map_lookup_elem(m_nCounts, &nCounter, values.data()) == 0) {
        for (const uint64_t nValue : values) {
            nSum += nValue;
        }
    }
    return nSum;
}

SensorCounts KernelSensor::Counts() const {
    // Launches that met the program at work on their processor: the kernel skips those.
    bpf_prog_info info = {};
    uint32_t nLength = sizeof(info);
    const bool bKnown = bpf_obj_get_info_by_fd(m_nExecProgram, &info, &nLength) == 0;
    const uint64_t nMissed = bKnown ? info.recursion_misses : 0;
    SensorCounts counts;
    // The lost ones first: they are never more than those captured.
    counts.nLost = Sum(LAUNCH_COUNT_LOST) + nMissed;
    counts.nOthersLost = Sum(LAUNCH_COUNT_OTHERS_LOST);
    counts.nCaptured = Sum(LAUNCH_COUNT_CAPTURED) + nMissed;
    return counts;
}

}  // namespace

std::unique_ptr<ILaunchSensor> MakeLaunchSensor() {
    return std::make_unique<KernelSensor>();
}

#else

namespace {

class AbsentSensor : public ILaunchSensor {
public:
    bool Open(std::string& strError) override {
        strError =
            "this tevmon-host was built without the launch sensor; install the packages clang and "
            "libbpf-dev, configure and build again";
        return false;
    }
    void Drain(const Sink& /*fnSink*/) override {}
    void Detach() override {}
    SensorCounts Counts() const override { return {}; }
    std::string Name() const override { return "eBPF"; }
    std::string Limits() const override { return ""; }
};

}  // namespace

std::unique_ptr<ILaunchSensor> MakeLaunchSensor() {
    return std::make_unique<AbsentSensor>();
}

#endif
