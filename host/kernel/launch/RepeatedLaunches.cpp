#include "host/kernel/launch/RepeatedLaunches.h"

#include "host/kernel/launch/LaunchPath.h"

namespace {

// What its file alone decides. What a script, an interpreter or a file without a name
// runs is not that file.
bool IsOfItsFile(const LaunchEvent& event) {
    return !event.bFresh && !event.bServed && !event.bPathCut && event.nChanged != 0 &&
           event.strInterp.empty() && !event.strPath.empty() && !IsInterpreter(event.strPath) &&
           !IsInterpreter(event.strName);
}

void AddNumber(std::string& strKey, uint64_t nNumber) {
    strKey.append(reinterpret_cast<const char*>(&nNumber), sizeof(nNumber));
}

std::string KeyOf(const LaunchEvent& event, const std::string& strStarter) {
    std::string strKey;
    for (const uint64_t nNumber :
         {uint64_t{event.nDevice}, event.nInode, event.nSize, static_cast<uint64_t>(event.nChanged),
          uint64_t{event.nUid}, uint64_t{event.nMountNs}, event.nCgroup}) {
        AddNumber(strKey, nNumber);
    }
    for (const std::string* pText :
         {&event.strPath, &event.strName, &event.strDirectory, &event.strRoot, &strStarter}) {
        strKey.append(*pText).push_back('\0');
    }
    return strKey;
}

}  // namespace

std::optional<Launch> RepeatedLaunches::Find(const LaunchEvent& event,
                                             const std::string& strStarter, Clock::time_point now) {
    Expire(now);
    if (m_reports.empty() || !IsOfItsFile(event)) {
        return std::nullopt;
    }
    const auto found = m_reports.find(KeyOf(event, strStarter));
    if (found == m_reports.end() || !found->second.launch.pFile->IsSettled()) {
        return std::nullopt;
    }
    const Launch& same = found->second.launch;
    Launch launch;
    launch.creation = {same.creation.strPath, event.strCommand, event.nPid};
    launch.context = same.context;
    launch.strStarter = strStarter;
    launch.eOrigin = same.eOrigin;
    launch.bArgsCut = event.bArgsCut;
    return launch;
}

void RepeatedLaunches::Expire(Clock::time_point now) {
    for (; !m_order.empty() && now - m_order.front()->second.when > m_window; m_order.pop_front()) {
        m_reports.erase(m_reports.find(m_order.front()->first));
    }
}

void RepeatedLaunches::Reported(const LaunchEvent& event, const Launch& launch,
                                Clock::time_point now) {
    const bool bNamed =
        launch.eOrigin == LAUNCH_PATH_INVOKED || launch.eOrigin == LAUNCH_PATH_RESOLVED;
    if (m_window.count() == 0 || m_reports.size() >= MOST || !bNamed || !IsOfItsFile(event) ||
        launch.pFile == nullptr || !launch.pFile->IsSure()) {
        return;
    }
    const auto added = m_reports.try_emplace(KeyOf(event, launch.strStarter));
    if (added.second) {
        added.first->second.launch = launch;
        added.first->second.launch.creation.strCommand.clear();
        added.first->second.when = now;
        m_order.push_back(&*added.first);
    }
}
