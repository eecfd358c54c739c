// Which launch sensor a watch uses: the best that this machine allows, or the one that was asked
// for.
//
// Threads: as ILaunchSensor. Errors: as ILaunchSensor.
#ifndef HOST_KERNEL_SENSORCHOICE_H
#define HOST_KERNEL_SENSORCHOICE_H

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "host/kernel/launch/ILaunchSensor.h"

// The first sensor of a list that can be opened. Its limits name those that could not, and why.
class SensorChoice : public ILaunchSensor {
public:
    using Maker = std::function<std::unique_ptr<ILaunchSensor>()>;

    explicit SensorChoice(std::vector<Maker> makers) : m_makers(std::move(makers)) {}

    bool Open(std::string& strError) override;
    void Drain(const Sink& fnSink) override { m_pSensor->Drain(fnSink); }
    bool CatchUp(std::chrono::milliseconds wait) override { return m_pSensor->CatchUp(wait); }
    bool IsExact() const override { return m_pSensor->IsExact(); }
    int Descriptor() const override { return m_pSensor->Descriptor(); }
    void SetSleeping(bool bSleeping) override { m_pSensor->SetSleeping(bSleeping); }
    void Detach() override { m_pSensor->Detach(); }
    SensorCounts Counts() const override { return m_pSensor->Counts(); }
    std::string Name() const override { return m_pSensor->Name(); }
    std::string Limits() const override;

private:
    const std::vector<Maker> m_makers;
    std::unique_ptr<ILaunchSensor> m_pSensor;  // since Open
    std::string m_strRefusals;                 // of those before it
};

// The words of --sensor: auto, ebpf, connector-fanotify, connector.
std::vector<std::string> SensorWords();

// The sensor for one of these words. Never null.
std::unique_ptr<ILaunchSensor> MakeSensor(const std::string& strWord);

#endif
