#include "host/program/PinDirectory.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <vector>

#include "host/base/UniqueFd.h"
#include "tests/support/FileText.h"
#include "tests/support/TestDir.h"

using testing::EndsWith;
using testing::StartsWith;

namespace {

size_t Entries(const std::string& strPath) {
    size_t nEntries = 0;
    for (const auto& entry : std::filesystem::directory_iterator(strPath)) {
        nEntries += entry.path().empty() ? 0 : 1;
    }
    return nEntries;
}

class PinDirectoryTest : public testing::Test {
protected:
    PinDirectoryTest() { EXPECT_TRUE(m_pins.Open(m_strParent, m_strError)) << m_strError; }

    std::string Own() const {  // the directory of this run
        for (const auto& entry : std::filesystem::directory_iterator(m_strParent)) {
            return entry.path().native();
        }
        return "";
    }

    const TestDir m_dir;
    const std::string m_strParent = m_dir.Path() + "/run";
    const std::string m_strFile = m_dir.WriteFile("program", "content");
    const UniqueFd m_fd{open(m_strFile.c_str(), O_RDONLY | O_CLOEXEC)};
    std::string m_strError;
    PinDirectory m_pins;
};

}  // namespace

TEST_F(PinDirectoryTest, ALinkLeadsToTheFileWhateverBecomesOfItsName) {
    const auto pLink = m_pins.Make(m_fd.Get(), "/home/user/program");
    ASSERT_NE(nullptr, pLink);
    ASSERT_EQ(0, unlink(m_strFile.c_str()));

    EXPECT_THAT(pLink->Path(), StartsWith(Own() + "/"));
    EXPECT_THAT(pLink->Path(), EndsWith("/home/user/program"));
    EXPECT_EQ("content", FileText(pLink->Path()));
}

TEST_F(PinDirectoryTest, NothingOfALinkStaysBehind) {
    auto pLink = m_pins.Make(m_fd.Get(), "/a/b/c");
    const auto pOther = m_pins.Make(m_fd.Get(), "/a/b/c");
    ASSERT_NE(nullptr, pLink);
    EXPECT_EQ(2u, Entries(Own()));

    const std::string strPath = pLink->Path();
    pLink.reset();
    struct stat status = {};
    EXPECT_NE(0, lstat(strPath.c_str(), &status));
    EXPECT_EQ(1u, Entries(Own()));
    EXPECT_EQ("content", FileText(pOther->Path()));
}

TEST_F(PinDirectoryTest, NamesThatLeadUpOrNowhereAreTakenOut) {
    const auto pLink = m_pins.Make(m_fd.Get(), "/../a//./b/../../../c");
    ASSERT_NE(nullptr, pLink);
    EXPECT_EQ(Own() + "/1/c", pLink->Path());
}

TEST_F(PinDirectoryTest, APathThatCostsTooMuchGetsNoLink) {
    std::string strDeep;
    for (size_t i = 0; i <= PinDirectory::MOST_NAMES; ++i) {
        strDeep += "/a";
    }
    for (const std::string& strName :
         {std::string(), std::string("relative"), std::string("/"), std::string("/.."), strDeep,
          "/" + std::string(256, 'x'), std::string("/a\0b", 4),
          std::string(PinDirectory::MOST_BYTES, '/') + "a"}) {
        EXPECT_EQ(nullptr, m_pins.Make(m_fd.Get(), strName)) << strName;
    }
    EXPECT_EQ(0u, Entries(Own()));
    strDeep.resize(strDeep.size() - 2);
    EXPECT_NE(nullptr, m_pins.Make(m_fd.Get(), strDeep));
}

TEST_F(PinDirectoryTest, ThereIsABoundOnLinks) {
    std::vector<std::unique_ptr<PinLink>> links;
    for (size_t i = 0; i < PinDirectory::MOST_LINKS; ++i) {
        links.push_back(m_pins.Make(m_fd.Get(), "/a"));
        ASSERT_NE(nullptr, links.back());
    }
    EXPECT_EQ(nullptr, m_pins.Make(m_fd.Get(), "/a"));
    links.pop_back();
    EXPECT_NE(nullptr, m_pins.Make(m_fd.Get(), "/a"));
}

TEST_F(PinDirectoryTest, WhatAnEarlierRunLeftIsGoneBeforeThisOneBegins) {
    const auto pLink = m_pins.Make(m_fd.Get(), "/a/program");
    ASSERT_NE(nullptr, pLink);
    const std::string strEarlier = Own();
    const std::string strOther = m_dir.WriteFile("run/other", "stays");

    PinDirectory next;
    ASSERT_TRUE(next.Open(m_strParent, m_strError)) << m_strError;

    struct stat status = {};
    EXPECT_NE(0, lstat(pLink->Path().c_str(), &status));
    EXPECT_NE(0, lstat(strEarlier.c_str(), &status));
    EXPECT_EQ("stays", FileText(strOther));
    EXPECT_EQ(0, lstat(m_strFile.c_str(), &status));  // no link was followed
}

TEST_F(PinDirectoryTest, WithoutItsParentItSaysSo) {
    PinDirectory none;
    EXPECT_FALSE(none.Open(m_strParent + "/missing", m_strError));
    EXPECT_THAT(m_strError, testing::HasSubstr(m_strParent + "/missing"));
    EXPECT_EQ(nullptr, none.Make(m_fd.Get(), "/a"));
    EXPECT_EQ("/pins-/1/a", none.TrueNames("/pins-/1/a"));
}

TEST_F(PinDirectoryTest, TrueNamesStandInTextsAgain) {
    const auto pLink = m_pins.Make(m_fd.Get(), "/home/user/program");
    const auto pOther = m_pins.Make(m_fd.Get(), "/b");
    EXPECT_EQ("/home/user/program", m_pins.TrueNames(pLink->Path()));
    EXPECT_EQ("stat of [/home/user/program], then /b!",
              m_pins.TrueNames("stat of [" + pLink->Path() + "], then " + pOther->Path() + "!"));
    EXPECT_EQ("/other/path", m_pins.TrueNames("/other/path"));

    // The module masks names before it as well.
    std::string strMasked = pLink->Path();
    const std::string strUser = "user";
    strMasked.replace(strMasked.rfind(strUser), strUser.size(), "$username");
    strMasked.replace(0, m_dir.Path().size(), "/home/$username/state");
    EXPECT_EQ("/home/$username/program", m_pins.TrueNames(strMasked));
}

TEST_F(PinDirectoryTest, ItGoesWithItsObject) {
    {
        PinDirectory pins;
        ASSERT_TRUE(pins.Open(m_strParent, m_strError));
        ASSERT_NE(nullptr, pins.Make(m_fd.Get(), "/a/b"));
        EXPECT_EQ(1u, Entries(m_strParent));
    }
    EXPECT_EQ(0u, Entries(m_strParent));
}
