#include "host/kernel/file/PlaceComparison.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/unit/host/kernel/file/FakeTree.h"

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

class PlaceComparisonTest : public testing::Test {
protected:
    PlaceComparisonTest() {
        m_tree.files = {{"/etc/cron.d/job", {10}},
                        {"/usr/lib/systemd/system/a.service", {11}},
                        {"/usr/lib/systemd/system/a.txt", {12}}};
    }
    // What is found when it has caught up at this time, in milliseconds after the first.
    std::vector<std::string> At(int nMs, bool bLast = false) {
        std::vector<std::string> paths;
        m_comparison.CaughtUp(m_start + milliseconds(nMs), bLast,
                              [&](const FoundFile& found) { paths.push_back(found.strPath); });
        return paths;
    }

    FakeTree m_tree;
    WatchedPaths m_places{
        {}, [](const std::string& strPath) { return strPath == "/lib" ? "/usr/lib" : ""; }};
    PlaceComparison m_comparison{m_places, m_tree.Look(), m_tree.Names(), milliseconds(1000)};
    const PlaceComparison::Clock::time_point m_start = PlaceComparison::Clock::now();
};

}  // namespace

TEST_F(PlaceComparisonTest, WithoutDoubtNothingIsCompared) {
    m_comparison.Begin();
    m_tree.files["/etc/cron.d/new"] = {20};

    EXPECT_THAT(At(0), IsEmpty());
}

TEST_F(PlaceComparisonTest, InDoubtEveryPlaceIsComparedOnce) {
    m_comparison.Begin();
    m_tree.files["/etc/cron.d/new"] = {20};
    m_tree.files["/usr/lib/systemd/system/b.service"] = {21};
    m_tree.files["/usr/lib/systemd/system/b.txt"] = {22};  // nothing acts on it
    m_tree.files["/srv/job"] = {23};

    m_comparison.Doubt(true);

    EXPECT_THAT(At(0), ElementsAre("/etc/cron.d/new", "/usr/lib/systemd/system/b.service"));
    m_tree.files["/etc/cron.d/later"] = {24};
    EXPECT_THAT(At(5000), IsEmpty());
}

TEST_F(PlaceComparisonTest, BetweenTwoComparisonsIsTheTimeGivenAndAtTheEndNone) {
    m_comparison.Begin();
    m_comparison.Doubt(true);
    (void)At(0);

    m_tree.files["/etc/cron.d/new"] = {20};
    m_comparison.Doubt(true);
    EXPECT_THAT(At(999), IsEmpty());
    EXPECT_THAT(At(1000), ElementsAre("/etc/cron.d/new"));

    m_tree.files["/etc/cron.d/last"] = {21};
    m_comparison.Doubt(true);
    EXPECT_THAT(At(1001), IsEmpty());
    EXPECT_THAT(At(1001, true), ElementsAre("/etc/cron.d/last"));
}

TEST_F(PlaceComparisonTest, WhatAnEventReportsIsKnownAndInDoubtItIsNot) {
    m_comparison.Begin();
    m_tree.files["/etc/cron.d/known"] = {20};
    m_comparison.Reported("/etc/cron.d/known", 0);
    (void)At(0);
    (void)At(0);
    m_comparison.Doubt(true);
    m_tree.files["/etc/cron.d/doubted"] = {21};
    m_comparison.Reported("/etc/cron.d/doubted", 0);

    EXPECT_THAT(At(0), ElementsAre("/etc/cron.d/doubted"));
}

TEST_F(PlaceComparisonTest, ThatThereAreMoreFilesThanItKnowsIsSaidOnce) {
    for (int i = 0; i < 20000; ++i) {
        m_tree.files["/etc/cron.d/" + std::to_string(i)] = {100};
    }
    m_comparison.Begin();
    EXPECT_THAT(m_comparison.TakeNotices(), ElementsAre(HasSubstr("more than 20000 files")));

    m_comparison.Doubt(true);
    (void)At(0);

    EXPECT_THAT(m_comparison.TakeNotices(), IsEmpty());
}
