#include "host/kernel/SensorChoice.h"

#include <gtest/gtest.h>

namespace {

// Opens when it has no refusal.
class FakeSensor : public ILaunchSensor {
public:
    FakeSensor(std::string strName, std::string strRefusal)
        : m_strName(std::move(strName)), m_strRefusal(std::move(strRefusal)) {}
    bool Open(std::string& strError) override {
        strError = m_strRefusal;
        return m_strRefusal.empty();
    }
    void Drain(const Sink& fnSink) override { (void)fnSink(m_strName.data(), m_strName.size()); }
    void Detach() override {}
    SensorCounts Counts() const override { return {3, 2, 1}; }
    std::string Name() const override { return m_strName; }
    std::string Limits() const override { return "limits of " + m_strName; }

private:
    const std::string m_strName;
    const std::string m_strRefusal;
};

SensorChoice::Maker Fake(const char* pszName, const char* pszRefusal) {
    return [pszName, pszRefusal] { return std::make_unique<FakeSensor>(pszName, pszRefusal); };
}

}  // namespace

TEST(SensorChoiceTest, TheFirstThatOpensIsTakenAndNoneAfterItIsMade) {
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

TEST(SensorChoiceTest, AFallbackSaysWhyItWasChosen) {
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

TEST(SensorChoiceTest, WhenNoneOpensEachRefusalIsTold) {
    SensorChoice choice({Fake("best", "no room"), Fake("second", "no time")});
    std::string strError;

    EXPECT_FALSE(choice.Open(strError));
    EXPECT_EQ("no room; instead of it: no time", strError);
}

TEST(SensorChoiceTest, EachWordHasASensor) {
    EXPECT_EQ((std::vector<std::string>{"auto", "ebpf", "connector-fanotify", "connector"}),
              SensorWords());
    for (const std::string& strWord : SensorWords()) {
        EXPECT_NE(nullptr, MakeSensor(strWord));
    }
}
