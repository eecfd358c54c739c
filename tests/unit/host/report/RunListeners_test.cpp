#include "host/report/RunListeners.h"

#include <gtest/gtest.h>

#include "host/report/DiagnosticLines.h"
#include "host/report/JsonLines.h"
#include "host/report/MetricsListener.h"
#include "host/report/Recorder.h"
#include "host/report/WatchLines.h"

namespace {

class RunListenersTest : public testing::Test {
protected:
    template <class Listener>
    static bool Is(const std::unique_ptr<IRunListener>& pListener) {
        return dynamic_cast<Listener*>(pListener.get()) != nullptr;
    }

    Console m_output;
    HostOptions m_options;
    VerdictService m_service;
    RunJournal m_journal{m_service, {}, false};
};

}  // namespace

TEST_F(RunListenersTest, ARunIsShownInLinesOrInRecords) {
    RunListeners listeners = MakeRunListeners(m_output, m_options, m_journal);
    ASSERT_EQ(2u, listeners.size());
    EXPECT_TRUE(Is<DiagnosticLines>(listeners[0]));
    EXPECT_TRUE(Is<RunLines>(listeners[1]));

    m_options.bJson = true;
    listeners = MakeRunListeners(m_output, m_options, m_journal);
    ASSERT_EQ(2u, listeners.size());
    EXPECT_TRUE(Is<DiagnosticLines>(listeners[0]));
    EXPECT_TRUE(Is<JsonLines>(listeners[1]));
}

TEST_F(RunListenersTest, AWatchIsKeptAsItIsAskedFor) {
    WatchOptions watch;
    RunListeners listeners = MakeWatchListeners(m_output, m_options, m_journal, watch);
    ASSERT_EQ(2u, listeners.size());
    EXPECT_TRUE(Is<DiagnosticLines>(listeners[0]));
    EXPECT_TRUE(Is<WatchLines>(listeners[1]));

    m_options.bJson = true;
    watch.pRecord.reset(tmpfile(), fclose);
    watch.strMetricsFile = "/nowhere";
    listeners = MakeWatchListeners(m_output, m_options, m_journal, watch);
    ASSERT_EQ(4u, listeners.size());
    EXPECT_TRUE(Is<DiagnosticLines>(listeners[0]));
    EXPECT_TRUE(Is<JsonLines>(listeners[1]));
    EXPECT_TRUE(Is<Recorder>(listeners[2]));
    EXPECT_TRUE(Is<MetricsListener>(listeners[3]));
}
