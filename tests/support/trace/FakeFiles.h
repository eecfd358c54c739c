// Puts what stat() and utils::getMD5AndSHA1() see under the test's control while it lives; paths
// that it does not know are seen as they are.
#ifndef TESTS_SUPPORT_TRACE_FAKEFILES_H
#define TESTS_SUPPORT_TRACE_FAKEFILES_H

#include <sys/stat.h>

#include <map>
#include <mutex>
#include <string>

class FakeFiles {
public:
    FakeFiles();
    ~FakeFiles();

    FakeFiles(const FakeFiles&) = delete;
    FakeFiles& operator=(const FakeFiles&) = delete;

    // What is at strReal is seen at strPath.
    void Redirect(const std::string& strPath, const std::string& strReal);
    // stat() of strPath gives this status; the digests are those of the file itself.
    void SetStatus(const std::string& strPath, const struct stat& status);
    // stat() of strPath works nCalls times more and then finds nothing.
    void VanishAfter(const std::string& strPath, int nCalls);

    // What the interposed calls ask. Stat answers false for a path it does not know.
    bool Stat(const std::string& strPath, struct stat& status, int& nResult);
    std::string RealPath(const std::string& strPath);

private:
    struct Fake {
        std::string strReal;  // empty for the path itself
        bool bStatus = false;
        struct stat status = {};
        int nCallsLeft = -1;  // negative for no end
    };

    std::mutex m_mutex;
    std::map<std::string, Fake> m_fakes;
};

#endif
