// A launch sensor whose records are a test's. What it is asked for stands in a state that outlives
// it: its owner is a source.
#ifndef TESTS_SUPPORT_HOST_FAKELAUNCHSENSOR_H
#define TESTS_SUPPORT_HOST_FAKELAUNCHSENSOR_H

#include <deque>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "host/kernel/launch/ILaunchSensor.h"

struct FakeLaunchState {
    std::deque<std::string> records;
    SensorCounts counts;
    std::string strRefusal;  // it opens when it has none
    std::string strName = "a test";
    std::string strLimits;
    std::function<void()> fnOnDrain;  // what happens whenever it is drained
    bool bCaughtUp = true;
    size_t nCatchUps = 0;
    bool bExact = true;
    bool bDetached = false;
    int nDescriptor = -1;
    std::vector<bool> sleeps;  // what was set, in that order
};

class FakeLaunchSensor : public ILaunchSensor {
public:
    explicit FakeLaunchSensor(FakeLaunchState& state) : m_state(state) {}

    bool Open(std::string& strError) override {
        strError = m_state.strRefusal;
        return m_state.strRefusal.empty();
    }
    void Drain(const Sink& fnSink) override {
        if (m_state.fnOnDrain) {
            m_state.fnOnDrain();
        }
        bool bMore = true;
        while (bMore && !m_state.records.empty()) {
            const std::string strRecord = std::move(m_state.records.front());
            m_state.records.pop_front();
            bMore = fnSink(strRecord.data(), strRecord.size());
        }
    }
    bool CatchUp(std::chrono::milliseconds) override {
        ++m_state.nCatchUps;
        return m_state.bCaughtUp;
    }
    bool IsExact() const override { return m_state.bExact; }
    int Descriptor() const override { return m_state.nDescriptor; }
    void SetSleeping(bool bSleeping) override { m_state.sleeps.push_back(bSleeping); }
    void Detach() override { m_state.bDetached = true; }
    SensorCounts Counts() const override { return m_state.counts; }
    std::string Name() const override { return m_state.strName; }
    std::string Limits() const override { return m_state.strLimits; }

private:
    FakeLaunchState& m_state;
};

#endif
