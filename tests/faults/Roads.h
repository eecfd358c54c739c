// The roads that faults are put on. Each runs in a child process on databases of its own, which the
// parent looks at afterwards; what the child had been promised stands in memory that both share.
#ifndef TESTS_FAULTS_ROADS_H
#define TESTS_FAULTS_ROADS_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

constexpr int MAX_NUMBERS = 64;
// What is queued and cached before every road, from number 0 on; how much, how large, and which
// verdicts have expired is the seed's.
constexpr int FirstMessages(uint32_t nSeed) {
    return 1 + static_cast<int>(nSeed * 3 % 8);
}
constexpr int FirstVerdicts(uint32_t nSeed) {
    return 10 + static_cast<int>(nSeed * 14 % 29);
}

// Those that build an event: of launches, and of the six file operations.
constexpr size_t HANDLERS = 7;

// Plain bytes: a killed process leaves them whole. Indexed by the number of a message or verdict.
struct Promises {
    unsigned char acknowledged[MAX_NUMBERS];  // message: its insert returned 0
    unsigned char handed[MAX_NUMBERS];        // message: how often an analyser got it
    unsigned char recorded[MAX_NUMBERS];      // verdict: its insert returned 0
    char struck[16];                          // the I/O call that the fault was put on
    unsigned char worksOn;                    // after the fault a message could be queued again
    unsigned char cacheWorksOn;               // and a verdict recorded and found again
    unsigned char queries[HANDLERS];          // by the analysers' handlers, each of its own
};

struct Road {
    const char* pszName;
    // [child] nSeed varies sizes and counts; the files of the databases are there already.
    void (*pfnRun)(Promises& promises, uint32_t nSeed);
    bool bWrites;
};

constexpr size_t ROAD_COUNT = 10;
extern const std::vector<Road> ROADS;
const Road& RoadOf(const std::string& strName);

// One directory with the files as every road finds them.
class RoadPlace {
public:
    RoadPlace();
    ~RoadPlace();
    RoadPlace(const RoadPlace&) = delete;
    RoadPlace& operator=(const RoadPlace&) = delete;

    void Reset(uint32_t nSeed);  // files and promises as the seed's roads find them
    Promises& Shared() { return *m_pPromises; }

    // Runs work in a child process, whose standard output goes nowhere and which ends when
    // it hangs. The wait status; the child's exit code is what work returns, 99 after an exception.
    int InChild(const std::function<int()>& work) const;

    enum Left {
        LEFT_ANY,      // messages may be queued still
        LEFT_NONE,     // all have been passed on but the one of QueueOneMore
        LEFT_UNKNOWN,  // the module's own analysers took them: they are not looked for
    };

    // What does not hold in the files and promises, one line each; none when all does. A kill
    // allows nRepeats messages to be passed on once more, a negative number any. Looks at copies:
    // a journal that a kill left behind is the next start's to find.
    std::vector<std::string> Broken(int nRepeats, Left eLeft = LEFT_ANY) const;

private:
    void Prepare(uint32_t nSeed);

    uint32_t m_nSeed = 0;
    std::string m_strDir;
    std::string m_strOldDir;
    std::string m_strQueue;  // the prepared files' contents
    std::string m_strCache;
    Promises* m_pPromises;
};

// [child] Passes on what is queued until nothing is; as the next start would.
void DrainAll(Promises& promises);
// [child] Queues one message more, and records one verdict more, with the objects that the road
// used, and says in the promises whether that worked.
void QueueOneMore(Promises& promises);
void RecordOneMore(Promises& promises);

#endif
