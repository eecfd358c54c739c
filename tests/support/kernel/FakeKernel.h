// Stands before the system calls by which the host's sensors listen to the kernel: while one lives,
// the process connector and fanotify are a test's, which gives messages and events as bytes.
// Everything else, and all of it without one, reaches the kernel.
//
// Threads: any, for what is a call here; the members are set before a sensor is opened.
#ifndef TESTS_SUPPORT_KERNEL_FAKEKERNEL_H
#define TESTS_SUPPORT_KERNEL_FAKEKERNEL_H

#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <vector>

class FakeKernel {
public:
    struct Mark {
        unsigned nFlags = 0;
        uint64_t nMask = 0;
        std::string strPath;
    };
    // What a socket or group has for whoever reads it. A read takes one of them; of a message
    // longer than the reader's buffer only what fits. nError: the read fails with this number
    // instead.
    struct Told {
        std::string strBytes;
        int nError = 0;
    };

    FakeKernel();
    ~FakeKernel();

    FakeKernel(const FakeKernel&) = delete;
    FakeKernel& operator=(const FakeKernel&) = delete;

    // What the kernel allows and is. An error number is positive; 0: it allows the call.
    std::string strRelease = "6.6.0";
    bool bMayTrace = true;  // the capability to look at other users' processes
    bool bRealTime = true;  // a thread may get a real-time priority
    bool bPolled = false;   // poll of a socket or group alone says whether it has anything to read
    int nSocketError = 0;
    int nBindError = 0;
    int nSubscribeError = 0;
    std::vector<int> groupErrors;  // of the groups in the order in which they are asked for
    std::map<std::string, int> markErrors;  // by path
    std::vector<uint32_t> drops;  // the kernel's counters, by the sockets' order; none for the rest
    int nWholeError = 0;          // of every mark of a whole file system
    int nIgnoreError = 0;         // of an ignore mark in the newer form
    std::map<std::string, std::string> paths;    // opened path -> the path that is opened instead
    std::map<std::string, std::string> handles;  // bytes of a handle -> the path that it is of

    // Adds to what the sockets (by their order of opening) and the newest group have to give, all
    // at once: the first socket is always read first, and with it the rest becomes readable.
    void Tell(const std::map<size_t, std::vector<Told>>& bySocket, const std::vector<Told>& events);
    // The table of mounts has changed; said to one poll.
    void ChangeMounts();

    // What it was asked for, in its order.
    std::vector<std::string> Requests();  // subscriptions, as bytes
    std::vector<unsigned> GroupFlags();
    std::vector<unsigned> FileFlags();  // of the groups: how the files of their events are opened
    std::vector<Mark> Marks();
    size_t OpenFds();  // sockets and groups that were not closed

    // For the calls that stand in for the kernel's.
    struct Calls;

private:
    friend struct Calls;

    struct Source {
        bool bSocket = false;
        size_t nOrder = 0;
        std::deque<Told> told;
    };

    std::mutex m_mutex;  // guards what follows
    std::map<int, Source> m_sources;
    size_t m_nSockets = 0;
    std::map<size_t, std::vector<Told>> m_stagedMessages;
    std::vector<Told> m_stagedEvents;
    std::vector<std::string> m_requests;
    std::vector<unsigned> m_groupFlags;
    std::vector<unsigned> m_fileFlags;
    std::vector<Mark> m_marks;
    int m_nMounts = -1;  // the descriptor of the mount table
    bool m_bMountsChanged = false;
};

#endif
