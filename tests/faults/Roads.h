// The roads that faults are put on. Each runs in a child process on databases of its own, which the
// parent looks at afterwards; what the child had been promised stands in memory that both share.
#ifndef TESTS_FAULTS_ROADS_H
#define TESTS_FAULTS_ROADS_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

constexpr int MAX_NUMBERS = 64;
constexpr int FIRST_MESSAGES = 4;   // queued before every road: numbers 0 to 3
constexpr int FIRST_VERDICTS = 24;  // cached before every road; the odd ones have expired

// Plain bytes: a killed process leaves them whole. Indexed by the number of a message or verdict.
struct Promises {
    unsigned char acknowledged[MAX_NUMBERS];  // message: its insert returned 0
    unsigned char handed[MAX_NUMBERS];        // message: how often an analyser got it
    unsigned char recorded[MAX_NUMBERS];      // verdict: its insert returned 0
    char struck[16];                          // the I/O call that the fault was put on
    unsigned char worksOn;                    // after the fault a message could be queued again
};

struct Road {
    const char* pszName;
    // [child] nSeed varies sizes; the files of the databases are there already.
    void (*pfnRun)(Promises& promises, uint32_t nSeed);
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

    void Reset();  // files and promises as at the beginning
    Promises& Shared() { return *m_pPromises; }

    // Runs work in a child process, whose standard output goes nowhere and which ends within a
    // minute. The wait status; the child's exit code is what work returns, 99 after an exception.
    int InChild(const std::function<int()>& work) const;

    // What does not hold in the files and promises, one line each; none when all does. A kill
    // allows nRepeats messages to be handed over once more, a negative number any. Where the
    // module's own analysers took the messages, bAnalysed, those are not looked for.
    std::vector<std::string> Broken(int nRepeats, bool bAnalysed = false) const;

private:
    std::string m_strDir;
    std::string m_strOldDir;
    std::string m_strQueue;  // the prepared files' contents
    std::string m_strCache;
    Promises* m_pPromises;
};

// [child] Hands over what is queued until nothing is; as the next start would.
void DrainAll(Promises& promises);
// [child] Queues one message more and says in the promises whether that worked.
void QueueOneMore(Promises& promises);

#endif
