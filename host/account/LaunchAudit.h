// Holds the verdict on each launch against the file that was started: a bad program is judged by
// the digest of its own file, and what the module hashed is compared with it.
//
// Threads: any; one mutex, not held while a hook is called. Hashed and Begin are the module's
//   thread's.
// Errors: none but std::bad_alloc.
// Ownership: service and holding must outlive it.
#ifndef HOST_ACCOUNT_LAUNCHAUDIT_H
#define HOST_ACCOUNT_LAUNCHAUDIT_H

#include <sys/stat.h>

#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/account/EventLedger.h"
#include "host/account/ProgramJudge.h"
#include "host/base/JsonReader.h"
#include "host/base/Mutex.h"
#include "host/base/StateLayout.h"
#include "host/event/LaunchesAgain.h"
#include "host/kernel/launch/Launch.h"
#include "host/program/DigestLanes.h"
#include "host/program/PinDirectory.h"
#include "host/verdict/VerdictService.h"

// Another content lay under a launch's name when the module hashed it.
struct LaunchChange {
    std::string strFile;       // as it was reported
    std::string strHashedKey;  // what the module hashed
    std::string strKey;        // of the file that was started; "" when that is not known
    bool bAgain = false;       // it is reported once more
};

// What it works with, of one run.
struct LaunchHolding {
    std::shared_ptr<PinDirectory> pLinks = std::make_shared<PinDirectory>();
    std::shared_ptr<LaunchesAgain> pAgain = std::make_shared<LaunchesAgain>();
    DigestLanes lanes{LaneOptions()};

    // Makes the directory of links, and removes those of earlier runs.
    bool Open(const std::string& strStateDir, std::string& strError) {
        return pLinks->Open(state_layout::Run(strStateDir), strError);
    }
    // With the descriptors that a watch has.
    static DigestLanesOptions LaneOptions() {
        DigestLanesOptions options;
        options.nMostSmall = 8192;
        options.nMostLarge = 512;
        return options;
    }
};

class LaunchAudit {
public:
    // Launches that wait for a digest with their names; those beyond it are announced under the
    // name of the first of their file.
    static constexpr size_t MOST_WAITING = 8192;

    struct Hooks {
        // A bad program has been started; or one that the module had ended before its digest was
        // there.
        std::function<void(const Judgement&)> fnJudged;
        std::function<void(const LaunchChange&)> fnChanged;
    };
    LaunchAudit(const VerdictService& service, LaunchHolding& holding, Hooks hooks);

    LaunchAudit(const LaunchAudit&) = delete;
    LaunchAudit& operator=(const LaunchAudit&) = delete;

    // A launch was reported, or could not be but is held: its digest is asked for.
    void Note(const std::string& strName, const std::string& strStarter, const HeldFileRef& pFile);
    // [lanes] Its digest is there, or will never be.
    void Digested(const FileVersion& version, const ProgramDigest& digest);

    // The module begins with this message; what it does not find there is reported once more.
    void Begin(const std::string& strBody, const std::vector<StrayLaunch>& gone);
    // What is in the module's hand, for EventLedger::Hashed.
    EventLedger::IsSame SameAs(const struct stat& status, const std::string& strKey);
    // It was another file: reported once more, if it is still held.
    // status: of what the module hashed.
    void Changed(const StrayLaunch& launch, const struct stat& status,
                 const std::string& strHashedKey);

    // Of a launch whose file is held, when the module has ended with it: the verdict to be shown
    // then. moduleVerdict: on what the module hashed.
    std::optional<Verdict> Of(const EndedQuery& ended, const Verdict& moduleVerdict);
    // Whether what the file held at its start is not known: it may have changed without a trace.
    static bool IsDoubtful(const EndedQuery& ended);
    // [the module's thread] The verdict on what it hashed last.
    Verdict LastHashed() const;

private:
    struct Waiting {
        std::string strName;
        std::string strStarter;
    };
    struct WaitingFile {
        std::vector<Waiting> launches;
        HeldFileRef pFile;
        uint64_t nMore = 0;    // of which no name is kept
        std::string strEnded;  // by the module; the name of the last
    };

    void Judge(const Waiting& launch, const Verdict& verdict) const;
    bool ReportAgain(const StrayLaunch& launch);
    std::optional<event_message::Creation> CreationOf(const StrayLaunch& launch);

    const VerdictService& m_service;
    DigestLanes& m_lanes;
    LaunchesAgain& m_again;
    const PinDirectory& m_links;
    const Hooks m_hooks;
    mutable Mutex m_mutex;
    std::unordered_map<FileVersion, WaitingFile, FileVersionHash> m_waiting TEV_GUARDED_BY(m_mutex);
    size_t m_nWaiting TEV_GUARDED_BY(m_mutex) = 0;
    // Of the message in the module's hand; read when something of it is asked for.
    std::string m_strBody TEV_GUARDED_BY(m_mutex);
    Json::Value m_jsonMessage TEV_GUARDED_BY(m_mutex);
    std::string m_strLastKey TEV_GUARDED_BY(m_mutex);  // that the module hashed
};

#endif
