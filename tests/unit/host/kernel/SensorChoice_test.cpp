#include "host/kernel/SensorChoice.h"

#include <gtest/gtest.h>

#include <deque>

#include "tests/support/host/FakeLaunchSensor.h"

namespace {

class SensorChoiceTest : public testing::Test {
protected:
    // Opens when it has no refusal.
    SensorChoice::Maker Fake(const std::string& strName, const std::string& strRefusal) {
        FakeLaunchState& state = m_states.emplace_back();
        state.strName = strName;
        state.strRefusal = strRefusal;
        state.strLimits = "limits of " + strName;
        state.records = {strName};
        state.counts = {3, 2, 1};
        return [&state] { return std::make_unique<FakeLaunchSensor>(state); };
    }

    std::deque<FakeLaunchState> m_states;
};

}  // namespace

TEST_F(SensorChoiceTest, TheFirstThatOpensIsTakenAndNoneAfterItIsMade) {
    SensorChoice choice({Fake("best", ""), []() -> std::unique_ptr<ILaunchSensor> {
                             ADD_FAILURE() << "made";
                             return nullptr;
                         }});
    std::string strError = "old";

    ASSERT_TRUE(choice.Open(strError));

    EXPECT_EQ("best", choice.Name());
    EXPECT_EQ("limits of best", choice.Limits());
    EXPECT_EQ("", strError);
}

TEST_F(SensorChoiceTest, AFallbackSaysWhyItWasChosen) {
    SensorChoice choice({Fake("best", "no room"), Fake("second", "no time"), Fake("third", "")});
    std::string strError;
    std::string strRecord;

    ASSERT_TRUE(choice.Open(strError));
    choice.Drain([&strRecord](const void* pData, size_t nSize) {
        strRecord.assign(static_cast<const char*>(pData), nSize);
        return true;
    });

    EXPECT_EQ("third", choice.Name());
    EXPECT_EQ("limits of third; chosen because no room; instead of it: no time", choice.Limits());
    EXPECT_EQ("third", strRecord);
    EXPECT_EQ(3u, choice.Counts().nCaptured);
}

// Each of its own words: what is left out of the passing on would be the interface's default.
TEST_F(SensorChoiceTest, EverythingIsAskedOfTheChosenOne) {
    SensorChoice choice({Fake("best", "")});
    m_states[0].nDescriptor = 17;
    m_states[0].bExact = false;
    m_states[0].bCaughtUp = false;
    std::string strError;
    ASSERT_TRUE(choice.Open(strError));
    EXPECT_EQ(17, choice.Descriptor());
    EXPECT_FALSE(choice.IsExact());
    EXPECT_FALSE(choice.CatchUp(std::chrono::milliseconds(1)));
    EXPECT_EQ(1u, m_states[0].nCatchUps);
    choice.SetSleeping(true);
    choice.SetSleeping(false);
    EXPECT_EQ((std::vector<bool>{true, false}), m_states[0].sleeps);
    choice.Detach();
    EXPECT_TRUE(m_states[0].bDetached);
}

TEST_F(SensorChoiceTest, WhenNoneOpensEachRefusalIsReported) {
    SensorChoice choice({Fake("best", "no room"), Fake("second", "no time")});
    std::string strError;

    EXPECT_FALSE(choice.Open(strError));
    EXPECT_EQ("no room; instead of it: no time", strError);
}

TEST_F(SensorChoiceTest, EachWordHasASensor) {
    EXPECT_EQ((std::vector<std::string>{"auto", "ebpf", "connector-fanotify", "connector"}),
              SensorWords());
    for (const std::string& strWord : SensorWords()) {
        EXPECT_NE(nullptr, MakeSensor(strWord));
    }
}
