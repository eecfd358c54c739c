#include "host/verdict/VerdictService.h"

#include <gtest/gtest.h>

#include <thread>

#include "tests/support/host/OneDigestSource.h"

namespace {

const std::string SHA1 = "0123456789abcdef0123456789abcdef01234567";
const std::string MD5 = "fedcba9876543210fedcba9876543210";

void ExpectVerdict(const Verdict& expected, const Verdict& verdict) {
    EXPECT_EQ(expected.nLevel, verdict.nLevel);
    EXPECT_EQ(expected.strSource, verdict.strSource);
    EXPECT_EQ(expected.strOwner, verdict.strOwner);
}

}  // namespace

TEST(VerdictServiceTest, NobodyKnowsWithoutASource) {
    ExpectVerdict({40, "none", ""}, VerdictService().Decide(SHA1 + MD5));
}

TEST(VerdictServiceTest, TheFirstSourceThatKnowsDecides) {
    VerdictService service;
    service.AddSource(std::make_unique<OneDigestSource>("other", Verdict{20, "a", "a"}));
    service.AddSource(std::make_unique<OneDigestSource>(MD5, Verdict{70, "b", "b"}));
    service.AddSource(std::make_unique<OneDigestSource>(MD5, Verdict{10, "c", "c"}));

    ExpectVerdict({70, "b", "b"}, service.Decide(SHA1 + MD5));
}

TEST(VerdictServiceTest, UpperCaseKeysAreTheSameProgram) {
    VerdictService service;
    service.AddSource(std::make_unique<OneDigestSource>(MD5, Verdict{70, "b", ""}));

    const Verdict verdict =
        service.Decide("0123456789ABCDEF0123456789ABCDEF01234567FEDCBA9876543210FEDCBA9876543210");

    EXPECT_EQ(70, verdict.nLevel);
}

TEST(VerdictServiceTest, ATextThatIsNoKeyIsUnknown) {
    VerdictService service;
    service.AddSource(std::make_unique<OneDigestSource>(MD5, Verdict{70, "b", ""}));

    for (const std::string& strKey :
         {std::string(), MD5, SHA1, SHA1 + MD5 + "0", SHA1 + MD5.substr(1), MD5 + SHA1,
          "x" + SHA1.substr(1) + MD5, std::string(72, '\0'), std::string(1 << 20, 'a')}) {
        const Verdict verdict = service.Decide(strKey);

        EXPECT_EQ(40, verdict.nLevel);
        EXPECT_EQ("none", verdict.strSource);
    }
}

TEST(VerdictServiceTest, ANullSourceIsNotAdded) {
    VerdictService service;
    service.AddSource(nullptr);

    EXPECT_EQ(40, service.Decide(SHA1 + MD5).nLevel);
}

TEST(VerdictServiceTest, AnswersAreTheSameFromManyThreads) {
    VerdictService service;
    service.AddSource(std::make_unique<OneDigestSource>(MD5, Verdict{70, "b", "owner"}));
    std::vector<int> wrongAnswers(4, 0);

    std::vector<std::thread> threads;
    for (int& nWrong : wrongAnswers) {
        threads.emplace_back([&service, &nWrong] {
            for (int i = 0; i < 1000; ++i) {
                nWrong += service.Decide(SHA1 + MD5).strOwner == "owner" ? 0 : 1;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_EQ(std::vector<int>(4, 0), wrongAnswers);
}

TEST(VerdictServiceTest, AKeyIsTakenApartInLowerCase) {
    const auto key = VerdictService::ParseKey(
        "0123456789ABCDEF0123456789ABCDEF01234567FEDCBA9876543210FEDCBA9876543210");

    ASSERT_TRUE(key);
    EXPECT_EQ("0123456789abcdef0123456789abcdef01234567", key->strSha1);
    EXPECT_EQ("fedcba9876543210fedcba9876543210", key->strMd5);
    EXPECT_FALSE(VerdictService::ParseKey(SHA1 + MD5 + "\n"));
    EXPECT_FALSE(VerdictService::ParseKey(std::string(71, '0') + "g"));
}
