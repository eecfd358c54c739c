#include "host/kernel/SensorChoice.h"

#include "host/kernel/connector/ConnectorSensor.h"
#include "host/kernel/launch/LaunchSensor.h"

namespace {

constexpr const char* AUTO = "auto";

struct Choice {
    const char* pszWord;
    SensorChoice::Maker fnMake;
};

// The best one first.
const std::vector<Choice>& Choices() {
    static const std::vector<Choice> CHOICES = {
        {"ebpf", MakeLaunchSensor},
        {"connector-fanotify", [] { return MakeConnectorSensor(true); }},
        {"connector", [] { return MakeConnectorSensor(false); }},
    };
    return CHOICES;
}

}  // namespace

bool SensorChoice::Open(std::string& strError) {
    strError.clear();
    for (const Maker& fnMake : m_makers) {
        std::unique_ptr<ILaunchSensor> pSensor = fnMake();
        std::string strRefusal;
        if (pSensor->Open(strRefusal)) {
            m_strRefusals = strError;
            m_pSensor = std::move(pSensor);
            return true;
        }
        if (strError.find(strRefusal) == std::string::npos) {
            strError += (strError.empty() ? "" : "; instead of it: ") + strRefusal;
        }
    }
    return false;
}

std::string SensorChoice::Limits() const {
    const std::string strLimits = m_pSensor->Limits();
    return m_strRefusals.empty() ? strLimits : strLimits + "; chosen because " + m_strRefusals;
}

std::vector<std::string> SensorWords() {
    std::vector<std::string> words = {AUTO};
    for (const Choice& choice : Choices()) {
        words.emplace_back(choice.pszWord);
    }
    return words;
}

std::unique_ptr<ILaunchSensor> MakeSensor(const std::string& strWord) {
    std::vector<SensorChoice::Maker> makers;
    for (const Choice& choice : Choices()) {
        if (strWord == AUTO || strWord == choice.pszWord) {
            makers.push_back(choice.fnMake);
        }
    }
    return std::make_unique<SensorChoice>(std::move(makers));
}
