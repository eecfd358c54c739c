#include "host/verdict/ProgramVerdicts.h"

#include <gtest/gtest.h>

#include "host/verdict/IVerdictSource.h"
#include "tests/support/TestDir.h"

namespace {

// Blocks the file that holds "bad".
class BadSource : public IVerdictSource {
public:
    std::optional<Verdict> Lookup(const ProgramKey& key) const override {
        if (key.strMd5 == "bae60998ffe4923b131e3d6e4c19993e") {
            return Verdict{70, "bad list", "bad"};
        }
        return std::nullopt;
    }
};

class ProgramVerdictsTest : public testing::Test {
protected:
    ProgramVerdictsTest() { m_service.AddSource(std::make_unique<BadSource>()); }

    TestDir m_dir;
    VerdictService m_service;
    ProgramVerdicts m_programs{m_service};
};

}  // namespace

TEST_F(ProgramVerdictsTest, AProgramThatNobodyAskedAboutIsReadOnce) {
    EXPECT_EQ(70, m_programs.VerdictOf(m_dir.WriteFile("a", "bad", 0755)).nLevel);
    EXPECT_EQ(40, m_programs.VerdictOf(m_dir.WriteFile("b", "x", 0755)).nLevel);
    EXPECT_EQ(40, m_programs.VerdictOf(m_dir.Path() + "/gone").nLevel);
}

TEST_F(ProgramVerdictsTest, AGivenVerdictHoldsUntilTheFileIsAnother) {
    const std::string strPath = m_dir.WriteFile("a", "x", 0755);
    m_programs.SetVerdict(strPath, {10, "packages", "p"});
    EXPECT_EQ(10, m_programs.VerdictOf(strPath).nLevel);
    EXPECT_EQ("p", m_programs.VerdictOf(strPath).strOwner);

    m_dir.WriteFile("a", "bad", 0755);
    EXPECT_EQ(70, m_programs.VerdictOf(strPath).nLevel);
}

TEST_F(ProgramVerdictsTest, TheStarterIsTheLastOne) {
    EXPECT_EQ("", m_programs.Starter("/bin/a"));
    m_programs.SetStarter("/bin/a", "/bin/b");
    m_programs.SetStarter("/bin/a", "/bin/c");
    EXPECT_EQ("/bin/c", m_programs.Starter("/bin/a"));
}

TEST_F(ProgramVerdictsTest, WhatIsHeldIsBounded) {
    m_programs.SetStarter("/bin/a", "/bin/b");
    for (size_t i = 0; i < ProgramVerdicts::MOST_PROGRAMS; ++i) {
        m_programs.SetStarter(std::to_string(i), "x");
    }
    EXPECT_EQ("", m_programs.Starter("/bin/a"));
}
