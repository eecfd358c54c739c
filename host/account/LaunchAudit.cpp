#include "host/account/LaunchAudit.h"

#include <sys/sysmacros.h>

#include <utility>

#include "host/verdict/VerdictLevel.h"

namespace {

constexpr int MINOR_BITS = 20;

int64_t ChangedOf(const struct stat& status) {
    return status.st_ctim.tv_sec * int64_t{1000000000} + status.st_ctim.tv_nsec;
}

bool IsSameFile(const struct stat& left, const struct stat& right) {
    return left.st_dev == right.st_dev && left.st_ino == right.st_ino &&
           left.st_size == right.st_size && ChangedOf(left) == ChangedOf(right);
}

bool IsSameInode(const struct stat& left, const struct stat& right) {
    return left.st_dev == right.st_dev && left.st_ino == right.st_ino;
}

// Of some file systems stat names another device than the kernel's records do.
bool IsVersion(const struct stat& status, const FileVersion& version) {
    const uint64_t nDevice = uint64_t{major(status.st_dev)} << MINOR_BITS | minor(status.st_dev);
    return status.st_ino == version.nInode &&
           (nDevice == version.nDevice || major(status.st_dev) == 0) &&
           static_cast<uint64_t>(status.st_size) == version.nSize &&
           ChangedOf(status) == version.nChanged;
}

bool IsBad(const Verdict& verdict) {
    return verdict_level::ClassOf(verdict.nLevel) == verdict_level::CLASS_BAD;
}

}  // namespace

LaunchAudit::LaunchAudit(const VerdictService& service, LaunchHolding& holding, Hooks hooks)
    : m_service(service),
      m_lanes(holding.lanes),
      m_again(*holding.pAgain),
      m_links(*holding.pLinks),
      m_hooks(std::move(hooks)) {}

void LaunchAudit::Note(const std::string& strName, const std::string& strStarter,
                       const HeldFileRef& pFile) {
    if (pFile == nullptr || !pFile->Version().IsKnown()) {
        return;
    }
    {
        const MutexLock lock(m_mutex);
        WaitingFile& file = m_waiting[pFile->Version()];
        file.pFile = pFile;
        if (file.launches.empty() || m_nWaiting < MOST_WAITING) {
            file.launches.push_back({strName, strStarter});
            ++m_nWaiting;
        } else {
            ++file.nMore;
        }
    }
    if (const std::optional<ProgramDigest> digest = m_lanes.Ask(pFile)) {
        if (digest->eEnd != DIGEST_DONE) {
            pFile->AddUnjudged();
        }
        Digested(pFile->Version(), *digest);
    }
}

void LaunchAudit::Digested(const FileVersion& version, const ProgramDigest& digest) {
    WaitingFile file;
    {
        const MutexLock lock(m_mutex);
        const auto found = m_waiting.find(version);
        if (found == m_waiting.end()) {
            return;
        }
        file = std::move(found->second);
        m_nWaiting -= file.launches.size();
        m_waiting.erase(found);
    }
    // What may have been written to is bad where it is now, and is not known to be good.
    const Verdict verdict = m_service.Decide(digest.strKey);
    if (digest.eEnd == DIGEST_DONE && !IsBad(verdict)) {
        file.pFile->Settle();
    }
    // Without a digest of its own the module's verdict counts as well; both are shown once.
    const auto isFirst = [&] { return digest.eEnd == DIGEST_DONE || file.pFile->MarkShown(); };
    if (IsBad(verdict) && (isFirst() || file.pFile->IsSure())) {
        for (const Waiting& launch : file.launches) {
            Judge(launch, verdict);
        }
        for (; file.nMore > 0; --file.nMore) {
            Judge(file.launches.front(), verdict);
        }
    } else if (digest.eEnd == DIGEST_DONE && !file.strEnded.empty()) {
        Judge({file.strEnded, file.launches.front().strStarter}, verdict);
    }
}

void LaunchAudit::Judge(const Waiting& launch, const Verdict& verdict) const {
    m_hooks.fnJudged({"launch", launch.strName, launch.strName, launch.strStarter, verdict});
}

void LaunchAudit::Begin(const std::string& strBody, const std::vector<StrayLaunch>& gone) {
    {
        const MutexLock lock(m_mutex);
        m_strBody = strBody;
        m_jsonMessage = Json::Value();
    }
    for (const StrayLaunch& launch : gone) {
        (void)ReportAgain(launch);
    }
}

EventLedger::IsSame LaunchAudit::SameAs(const struct stat& status, const std::string& strKey) {
    {
        const MutexLock lock(m_mutex);
        m_strLastKey = strKey;
    }
    return [this, status, strKey](const HeldFile* pFile,
                                  const std::optional<FileVersion>& version) {
        if (pFile == nullptr && !version) {
            return true;  // nothing is known of it
        }
        // The content decides where it is known: a change of the name or mode changes the time, and
        // some writes do not.
        const std::optional<ProgramDigest> known =
            m_lanes.Known(pFile != nullptr ? pFile->Version() : *version);
        if (known) {
            return known->strKey == strKey;
        }
        return pFile != nullptr ? IsSameFile(status, pFile->Status()) : IsVersion(status, *version);
    };
}

void LaunchAudit::Changed(const StrayLaunch& launch, const struct stat& status,
                          const std::string& strHashedKey) {
    const std::optional<ProgramDigest> known =
        launch.pFile != nullptr ? m_lanes.Known(launch.pFile->Version()) : std::nullopt;
    const std::string strName = m_links.TrueNames(launch.strFile);
    const bool bAgain = ReportAgain(launch);
    m_hooks.fnChanged({strName, strHashedKey, known ? known->strKey : "", bAgain});
    // The very file that was started, with a bad content that it may have had then: either nobody
    // knows what it held, or it does not look changed.
    const bool bOwn = launch.pFile != nullptr && IsSameInode(status, launch.pFile->Status()) &&
                      (!known || IsSameFile(status, launch.pFile->Status()));
    const Verdict verdict = m_service.Decide(strHashedKey);
    if (bOwn && IsBad(verdict) && launch.pFile->MarkShown()) {
        Judge({strName, ""}, verdict);
    }
}

// Once: what was reported by a link leads to its file or to none.
bool LaunchAudit::ReportAgain(const StrayLaunch& launch) {
    const bool bSure = launch.pFile != nullptr && launch.pFile->IsSure();
    if (!bSure || m_links.TrueNames(launch.strFile) != launch.strFile) {
        return false;
    }
    std::optional<event_message::Creation> creation = CreationOf(launch);
    return creation && m_again.Add({std::move(*creation), launch.pFile});
}

std::optional<event_message::Creation> LaunchAudit::CreationOf(const StrayLaunch& launch) {
    const MutexLock lock(m_mutex);
    if (m_jsonMessage.isNull() && !json_reader::Parse(m_strBody, m_jsonMessage)) {
        return std::nullopt;
    }
    const Json::Value* const pParam = json_reader::Member(m_jsonMessage, "param");
    if (pParam == nullptr || !pParam->isArray() || launch.nElement >= pParam->size()) {
        return std::nullopt;
    }
    const Json::Value& jsonElement = (*pParam)[static_cast<Json::ArrayIndex>(launch.nElement)];
    return event_message::Creation{launch.strFile, json_reader::Text(jsonElement, "cmd"),
                                   static_cast<uint32_t>(json_reader::Number(jsonElement, "pid")),
                                   json_reader::Text(jsonElement, event_message::MEMBER_VERSION)};
}

bool LaunchAudit::IsDoubtful(const EndedQuery& ended) {
    return ended.pFile != nullptr && !ended.pFile->IsSure();
}

Verdict LaunchAudit::LastHashed() const {
    std::string strKey;
    {
        const MutexLock lock(m_mutex);
        strKey = m_strLastKey;
    }
    return m_service.Decide(strKey);
}

std::optional<Verdict> LaunchAudit::Of(const EndedQuery& ended, const Verdict& moduleVerdict) {
    const HeldFile& file = *ended.pFile;
    if (!file.IsSure()) {
        return IsBad(moduleVerdict) && !ended.bChanged && file.MarkShown()
                   ? std::optional<Verdict>(moduleVerdict)
                   : std::nullopt;
    }
    if (const std::optional<ProgramDigest> known = m_lanes.Known(file.Version())) {
        const Verdict verdict = m_service.Decide(known->strKey);
        // A bad program was announced when its digest was there, if that was asked for in time.
        const bool bShown = IsBad(verdict) ? file.TakeUnjudged() : !ended.bChanged;
        return bShown ? std::optional<Verdict>(verdict) : std::nullopt;
    }
    {
        const MutexLock lock(m_mutex);
        const auto found = m_waiting.find(file.Version());
        if (found != m_waiting.end()) {
            if (!ended.bChanged) {
                found->second.strEnded = file.Name();
            }
            return std::nullopt;
        }
    }
    const bool bShown =
        !ended.bChanged && (!IsBad(moduleVerdict) || file.TakeUnjudged() || file.MarkShown());
    return bShown ? std::optional<Verdict>(moduleVerdict) : std::nullopt;
}
