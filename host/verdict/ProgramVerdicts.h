// What is known of programs by their path: the verdict on each, and who started it last.
//
// Threads: any; one mutex, not held while a program is read. Errors: none but std::bad_alloc.
#ifndef HOST_VERDICT_PROGRAMVERDICTS_H
#define HOST_VERDICT_PROGRAMVERDICTS_H

#include <sys/stat.h>

#include <string>
#include <unordered_map>

#include "host/base/Mutex.h"
#include "host/verdict/VerdictService.h"

class ProgramVerdicts {
public:
    // Programs remembered at most.
    static constexpr size_t MOST_PROGRAMS = 8192;

    explicit ProgramVerdicts(const VerdictService& service) : m_service(service) {}

    void SetStarter(const std::string& strPath, const std::string& strStarter);
    std::string Starter(const std::string& strPath) const;  // "" when nobody knows

    // The verdict that was just given on the file that stands there now.
    void SetVerdict(const std::string& strPath, const Verdict& verdict);
    // The verdict on the file at strPath; it is read when it is another than the last time.
    Verdict VerdictOf(const std::string& strPath);

    // SHA-1 and MD5 of the file one after the other; "" when it cannot be read.
    static std::string KeyOf(const std::string& strPath);

private:
    struct Program {
        std::string strStarter;
        bool bJudged = false;
        Verdict verdict;
        struct stat status = {};  // of the file that the verdict is on
    };

    Program& Entry(const std::string& strPath) TEV_REQUIRES(m_mutex);

    const VerdictService& m_service;
    mutable Mutex m_mutex;
    std::unordered_map<std::string, Program> m_programs TEV_GUARDED_BY(m_mutex);
};

#endif
