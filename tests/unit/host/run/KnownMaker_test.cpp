#include "host/run/KnownMaker.h"

#include <gtest/gtest.h>

#include <memory>

#include "tests/support/DbFile.h"
#include "tests/support/TestDir.h"

namespace {

constexpr char ABC_KEY[] =
    "a9993e364706816aba3e25717850c26c9cd0d89d900150983cd24fb0d6963f7d28e17f72";

// One verdict on every program.
class EveryProgram : public IVerdictSource {
public:
    explicit EveryProgram(int nLevel) : m_nLevel(nLevel) {}
    std::optional<Verdict> Lookup(const ProgramKey&) const override {
        return Verdict{m_nLevel, "test", ""};
    }

private:
    const int m_nLevel;
};

class KnownMakerTest : public testing::Test {
protected:
    KnownMakerTest() { DbFile(m_strCache).Execute(CACHE_TABLE); }

    void StoreVerdict() {
        DbFile(m_strCache)
            .Execute(std::string("insert into cachotable(vkey,level) values('") + ABC_KEY +
                     "',20)");
    }
    bool IsKnown(int nLevel) const {
        VerdictService service;
        service.AddSource(std::make_unique<EveryProgram>(nLevel));
        return MakeKnownMaker(service, m_strCache)(m_strProgram);
    }

    const TestDir m_dir;
    const std::string m_strCache = m_dir.Path() + "/cache.db";
    const std::string m_strProgram = m_dir.WriteFile("program", "abc", 0755);
};

}  // namespace

TEST_F(KnownMakerTest, AProgramWithAGoodVerdictInTheCacheIsKnown) {
    StoreVerdict();

    EXPECT_TRUE(IsKnown(10));
    EXPECT_TRUE(IsKnown(20));
    EXPECT_FALSE(IsKnown(40));
    EXPECT_FALSE(IsKnown(70));
}

TEST_F(KnownMakerTest, AProgramThatTheCacheDoesNotHoldIsNot) {
    EXPECT_FALSE(IsKnown(10));
}

TEST_F(KnownMakerTest, AProgramThatCannotBeReadIsNot) {
    StoreVerdict();
    ASSERT_EQ(0, unlink(m_strProgram.c_str()));

    EXPECT_FALSE(IsKnown(10));
}

TEST_F(KnownMakerTest, AProgramThatMakesManyPipesIsReadOnce) {
    int nReads = 0;
    const VerdictService service;
    const auto fnKnownMaker = MakeKnownMaker(service, m_strCache, [&](const std::string&) {
        ++nReads;
        return std::string(ABC_KEY);
    });
    for (int i = 0; i < 25; ++i) {
        EXPECT_FALSE(fnKnownMaker(m_strProgram));
    }
    EXPECT_EQ(1, nReads);
    EXPECT_FALSE(fnKnownMaker(m_strProgram + "2"));
    EXPECT_EQ(2, nReads);
}
