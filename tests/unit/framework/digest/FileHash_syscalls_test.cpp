#include "framework/digest/FileHash.h"

#include <gtest/gtest.h>

#include "framework/digest/DigestObserver.h"
#include "tests/support/SystemCalls.h"
#include "tests/support/TestDir.h"

namespace {

// What a digest of the file asks of the kernel.
std::string CallsOf(const std::string& strFile) {
    std::string strMd5;
    std::string strSha1;
    const auto calls = SystemCallsOf([&] { utils::getMD5AndSHA1(strFile, strMd5, strSha1); });
    return calls ? Summary(*calls) : "not traced";
}

class IdleObserver : public IDigestObserver {
public:
    void OnDigest(const std::string&, const struct stat&, const std::string&,
                  const std::string&) noexcept override {}
};

}  // namespace

TEST(FileHashSystemCallsTest, ADigestOpensAndLooksTwiceAndReadsOncePer64KiB) {
    if (!SystemCallsOf([] {})) {
        GTEST_SKIP() << "a process may not trace its own child here";
    }
    const TestDir dir;
    const std::string strSmall = dir.WriteFile("small", "abc");
    const std::string strLarge = dir.WriteFile("large", std::string(640 * 1024, 'x'));

    EXPECT_EQ("close 2, fstatfs 1, newfstatat 2, openat 2, read 1", CallsOf(strSmall));
    EXPECT_EQ("close 2, fstatfs 1, newfstatat 2, openat 2, read 10", CallsOf(strLarge));
}

TEST(FileHashSystemCallsTest, AnObserverCostsOneMoreLook) {
    if (!SystemCallsOf([] {})) {
        GTEST_SKIP() << "a process may not trace its own child here";
    }
    const TestDir dir;
    const std::string strFile = dir.WriteFile("small", "abc");
    IdleObserver observer;

    SetDigestObserver(&observer);
    EXPECT_EQ("close 2, fstatfs 1, newfstatat 3, openat 2, read 1", CallsOf(strFile));
    SetDigestObserver(nullptr);
    EXPECT_EQ("close 2, fstatfs 1, newfstatat 2, openat 2, read 1", CallsOf(strFile));
}
