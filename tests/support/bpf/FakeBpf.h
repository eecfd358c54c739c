// Stands before the library that loads programs into the kernel: while one lives, the calls of this
// process reach it instead, and a test writes the kernel's records and counters as bytes. Without
// one they reach the library.
//
// Threads: one.
#ifndef TESTS_SUPPORT_BPF_FAKEBPF_H
#define TESTS_SUPPORT_BPF_FAKEBPF_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <vector>

class FakeBpf {
public:
    FakeBpf();
    ~FakeBpf();

    FakeBpf(const FakeBpf&) = delete;
    FakeBpf& operator=(const FakeBpf&) = delete;

    static FakeBpf* Current();

    // What the kernel does. An error number is positive; 0: it allows the call.
    int nOpenError = 0;
    int nLoadError = 0;
    int nRingError = 0;
    bool bReaderRefused = false;                       // the word that says whether it sleeps
    std::map<std::string, int> attachErrors;           // by program
    int nProcessors = 2;                               // or a negative error number
    std::deque<std::string> records;                   // those that wait in the ring
    std::map<uint32_t, std::vector<uint64_t>> counts;  // a value for each processor
    std::map<std::string, uint64_t> missed;            // by program: launches while it was at work
    bool bInfoRefused = false;
    std::function<void()> fnBeforeLookup;  // what happens while counters are read

    // What it was asked for.
    std::string strObject;                       // the bytes of the program, as they were opened
    std::map<std::string, uint32_t> maxEntries;  // by map
    std::vector<std::string> found;              // programs that were looked for, in their order
    std::vector<std::string> attached;           // those that are now, in their order
    std::vector<std::string> detached;           // in their order
    int nObjects = 0;                            // opened and not closed
    int nRings = 0;                              // made and not freed
    int nLoads = 0;
    int nReader = -1;  // the memory behind that word
    int nLeaks = 0;    // exceptions that left a callback, through the library's frames
};

#endif
