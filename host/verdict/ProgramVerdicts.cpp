#include "host/verdict/ProgramVerdicts.h"

#include "framework/digest/FileHash.h"

namespace {

struct stat StatusOf(const std::string& strPath) {
    struct stat status = {};
    if (stat(strPath.c_str(), &status) != 0) {
        status = {};
    }
    return status;
}

bool IsSame(const struct stat& left, const struct stat& right) {
    return left.st_dev == right.st_dev && left.st_ino == right.st_ino &&
           left.st_size == right.st_size && left.st_mtim.tv_sec == right.st_mtim.tv_sec &&
           left.st_mtim.tv_nsec == right.st_mtim.tv_nsec &&
           left.st_ctim.tv_sec == right.st_ctim.tv_sec &&
           left.st_ctim.tv_nsec == right.st_ctim.tv_nsec;
}

}  // namespace

ProgramVerdicts::Program& ProgramVerdicts::Entry(const std::string& strPath) {
    if (m_programs.size() >= MOST_PROGRAMS && m_programs.count(strPath) == 0) {
        m_programs.clear();
    }
    return m_programs[strPath];
}

void ProgramVerdicts::SetStarter(const std::string& strPath, const std::string& strStarter) {
    const MutexLock lock(m_mutex);
    Entry(strPath).strStarter = strStarter;
}

std::string ProgramVerdicts::Starter(const std::string& strPath) const {
    const MutexLock lock(m_mutex);
    const auto found = m_programs.find(strPath);
    return found == m_programs.end() ? "" : found->second.strStarter;
}

void ProgramVerdicts::SetVerdict(const std::string& strPath, const Verdict& verdict) {
    const struct stat status = StatusOf(strPath);
    const MutexLock lock(m_mutex);
    Program& program = Entry(strPath);
    program.bJudged = true;
    program.verdict = verdict;
    program.status = status;
}

Verdict ProgramVerdicts::VerdictOf(const std::string& strPath) {
    const struct stat status = StatusOf(strPath);
    {
        const MutexLock lock(m_mutex);
        const auto found = m_programs.find(strPath);
        if (found != m_programs.end() && found->second.bJudged &&
            IsSame(found->second.status, status)) {
            return found->second.verdict;
        }
    }
    Verdict verdict = m_service.Decide(KeyOf(strPath));
    const MutexLock lock(m_mutex);
    Program& program = Entry(strPath);
    program.bJudged = true;
    program.verdict = verdict;
    program.status = status;
    return verdict;
}

std::string ProgramVerdicts::KeyOf(const std::string& strPath) {
    std::string strMd5;
    std::string strSha1;
    (void)utils::getMD5AndSHA1(strPath, strMd5, strSha1);
    return strMd5.empty() || strSha1.empty() ? "" : strSha1 + strMd5;
}
