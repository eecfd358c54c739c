#include "host/run/RunSession.h"

#include <algorithm>
#include <utility>

#include "host/base/EscapedText.h"
#include "host/base/ExitCodes.h"
#include "host/cloud/AnswerTracker.h"
#include "host/cloud/CloudEndpoint.h"
#include "host/database/DatabaseProbe.h"
#include "host/database/ModuleDatabase.h"
#include "host/module/ModuleLog.h"
#include "host/module/ModuleStdout.h"
#include "host/process/Privileges.h"
#include "host/process/StateDir.h"
#include "host/report/screen/Terminal.h"
#include "host/verdict/HashListSource.h"
#include "host/verdict/PackageSource.h"
#include "host/verdict/VerdictLevel.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds SOURCE_WAIT(200);     // a signal is seen this much later at most
constexpr milliseconds QUEUE_LOOK(250);      // between two looks into the queue
constexpr milliseconds MODULE_QUIET(200);    // without a sign of work: a look disturbs nobody
constexpr milliseconds ROUTER_LOOK(20);      // between two looks at the router
constexpr milliseconds LAST_ANSWERS(2000);   // for messages under way when the module stopped
constexpr milliseconds QUEUE_STILL(30000);   // a queue that stands still this long is remarked
constexpr milliseconds QUEUE_CORRECT(5000);  // between two corrections of the queue's count
constexpr int UNREADABLE_LOOKS = 40;         // in a row: the queue cannot be read

steady_clock::time_point After(double dSeconds) {
    return steady_clock::now() + std::chrono::duration_cast<steady_clock::duration>(
                                     std::chrono::duration<double>(dSeconds));
}

}  // namespace

RunSession::RunSession(const HostOptions& global, RunOptions options)
    : m_global(global),
      m_options(std::move(options)),
      m_health(m_manager.Watchdog()),
      m_pReport(m_options.fnMakeReport ? m_options.fnMakeReport(m_output, m_global, m_service)
                                       : std::make_unique<RunReport>(m_output, m_global)),
      m_queue(m_options.queue) {}

int RunSession::Fail(int nExitCode, const std::string& strError) {
    m_output.Error("tevmon-host: " + text::ForTerminal(strError));
    return nExitCode;
}

int RunSession::Run() {
    if (!m_options.bKeepPrivileges) {
        privileges::Confine();
    }
    m_stop.Begin(Terminal::Restore);
    m_output.TakeStandardOutput();
    m_pass.nPasses = m_options.nPasses;
    m_pass.strUnit = m_options.strUnit;
    if (!LoadVerdicts()) {
        return EXIT_CODE_INPUT;
    }
    StateDir stateDir;  // there when the source starts, which leaves it out
    std::string strError;
    if (!stateDir.Enter(m_global.strStateDir, strError)) {
        return Fail(EXIT_CODE_STATE, strError);
    }
    if (!StartSource()) {
        return m_options.nNoSourceCode;
    }
    if (!m_options.bKeepPrivileges) {
        privileges::KeepForWatching();  // the module's threads begin with that
    }
    for (const std::string& strFile : {m_global.ChannelDatabase(), m_global.CacheDatabase()}) {
        if (!ModuleDatabase(strFile).Prepare(strError)) {
            return Fail(EXIT_CODE_DATABASE, strError);
        }
    }
    return RunModule();
}

void RunSession::TidyUpDatabases() {
    for (const std::string& strFile : {m_global.ChannelDatabase(), m_global.CacheDatabase()}) {
        std::string strError;
        if (!ModuleDatabase(strFile).TidyUp(strError)) {
            (void)Fail(EXIT_CODE_DATABASE, strError);  // nothing is lost: the run was good
        }
    }
}

bool RunSession::LoadList(const std::string& strFile, int nLevel) {
    std::string strError;
    std::unique_ptr<HashListSource> pList = HashListSource::Load(strFile, nLevel, strError);
    if (pList == nullptr) {
        (void)Fail(EXIT_CODE_INPUT, strError);
        return false;
    }
    if (!pList->Note().empty()) {
        m_output.Error("tevmon-host: " + text::ForTerminal(pList->Note()));
    }
    m_service.AddSource(std::move(pList));
    return true;
}

// Lists before packages, block lists before allow lists.
bool RunSession::LoadVerdicts() {
    for (const std::string& strFile : m_options.blockLists) {
        if (!LoadList(strFile, verdict_level::BLOCKED)) {
            return false;
        }
    }
    for (const std::string& strFile : m_options.allowLists) {
        if (!LoadList(strFile, verdict_level::ALLOWED)) {
            return false;
        }
    }
    if (m_options.bPackages) {
        std::unique_ptr<PackageSource> pPackages = PackageSource::Load();
        if (!pPackages->Note().empty()) {
            m_output.Error("tevmon-host: " + text::ForTerminal(pPackages->Note()));
        }
        m_service.AddSource(std::move(pPackages));
    }
    return true;
}

bool RunSession::StartSource() {
    m_pSource = m_options.fnMakeSource([this](uint64_t nNumber, const std::string& strText) {
        m_pReport->OnRemark(nNumber, strText);
    });
    m_pass.strName = m_pSource->Name();
    std::string strError;
    if (!m_pSource->Start(strError)) {
        (void)Fail(m_options.nNoSourceCode, strError);
        return false;
    }
    return true;
}

int RunSession::RunModule() {
    const std::string strModule =
        m_global.strModule.empty() ? PluginLoader::DefaultPath() : m_global.strModule;
    AnswerTracker keys(m_global.CacheDatabase());  // reads the cache while nobody works with it
    ModuleLog log(m_output, *m_pReport, m_global.nLogLevel);
    ModuleStdout printed(
        [this](const std::string& strLine) { m_output.Error(text::ForTerminal(strLine)); });
    (void)printed.Begin();  // without it, what the module prints goes to standard error unread
    std::string strError;
    if (!m_loader.Load(strModule, strError)) {
        return Fail(EXIT_CODE_MODULE, strError);
    }
    m_pRouter = std::make_unique<Router>();
    CloudEndpoint cloud(*m_pRouter, m_service, keys, *m_pReport);
    m_pRouter->AddEndpoint(GuidFromText(CLOUD_ENDPOINT), &cloud);
    m_pRouter->AddEndpoint(GuidFromText(CENTRE_ENDPOINT), m_pReport.get());

    m_pReport->Begin(strModule);
    m_queue.Begin(database_probe::QueueDepth(m_global.ChannelDatabase()).value_or(0),
                  ModuleDatabase(m_global.ChannelDatabase()).UsedBytes());
    m_loader.Start(m_pRouter.get());
    if (m_options.dForSeconds > 0) {
        m_due = After(m_options.dForSeconds);
    }
    m_manager.Send("READY=1");
    const int nExitCode = RunPasses();
    m_manager.Send("STOPPING=1");
    EndModule();
    printed.End();
    TidyUpDatabases();
    Summarise();
    if (m_output.IsBroken()) {
        const std::string strReason = m_output.BrokenReason();
        return strReason.empty() ? static_cast<int>(EXIT_CODE_OUTPUT)
                                 : Fail(EXIT_CODE_OUTPUT, "standard output: " + strReason);
    }
    return nExitCode;
}

int RunSession::RunPasses() {
    for (m_pass.nPass = 1; m_pass.nPass <= m_options.nPasses; ++m_pass.nPass) {
        if (m_pass.nPass > 1 && !StartSource()) {
            return m_options.nNoSourceCode;
        }
        m_pReport->BeginPass(m_pass);
        Deliver();
        if (m_options.dSettleSeconds > 0) {
            m_bDrained = Drain() == DRAINED;
            return EXIT_CODE_SUCCESS;
        }
        if (!m_options.bDrain) {
            Wait();
            return EXIT_CODE_SUCCESS;
        }
        const DrainResult eResult = Drain();
        m_bDrained = eResult == DRAINED;
        m_pReport->EndPass(m_bDrained);
        if (eResult == DRAIN_UNREADABLE) {
            return Fail(EXIT_CODE_DATABASE, "cannot read the queue " + m_global.ChannelDatabase() +
                                                "; look at it with: tevmon-host queue count");
        }
        if (!m_bDrained) {
            return m_stop.Signal() != 0 ? EXIT_CODE_SUCCESS : EXIT_CODE_UNFINISHED;
        }
    }
    return EXIT_CODE_SUCCESS;
}

bool RunSession::MustEnd() const {
    return m_stop.IsRequested() || m_output.IsBroken() || (m_due && steady_clock::now() >= *m_due);
}

std::string RunSession::Doing(const std::string& strWhat) const {
    return m_options.nPasses == 1 ? strWhat
                                  : "pass " + std::to_string(m_pass.nPass) + ", " + strWhat;
}

void RunSession::Deliver() {
    auto shown = steady_clock::now();
    bool bStopped = false;
    for (;;) {
        if (!bStopped && MustEnd()) {
            m_pSource->Stop();
            bStopped = true;
        }
        EventBatch batch;
        const SourceResult eResult = m_pSource->Next(batch, SOURCE_WAIT);
        if (eResult == SOURCE_END) {
            break;
        }
        if (eResult == SOURCE_BATCH) {
            HandOver(batch);
        }
        Turn();
        if (steady_clock::now() - shown > QUEUE_LOOK) {
            m_pReport->Progress(Doing("delivering"));
            shown = steady_clock::now();
        }
    }
    m_pSource->Stop();
    if (m_options.dSettleSeconds > 0) {
        m_due = After(m_options.dSettleSeconds);
    }
    while (m_pRouter->Pending() > 0 && !MustEnd()) {
        m_stop.WaitFor(ROUTER_LOOK);
    }
}

void RunSession::HandOver(EventBatch& batch) {
    static const Guid SENSOR = GuidFromText(SENSOR_ENDPOINT);
    if (!TakeRoom(batch)) {
        m_queue.Refuse(batch.nEvents);
        m_pReport->OnDelivered(batch, QUEUE_BOUND_REACHED);
        return;
    }
    const size_t nBytes = batch.strBody.size();
    std::string strBody = std::move(batch.strBody);
    batch.strBody.clear();
    const auto fnDone = [this, batch, nBytes](uint32_t nCode) {
        if (nCode == 0) {
            m_queue.Stored(batch.nCopies);
        } else {
            m_queue.GiveBack(batch.nCopies, nBytes);
        }
        m_pReport->OnDelivered(batch, nCode);
    };
    const uint32_t nResult =
        m_pRouter->Deliver(SENSOR, MSG_TYPE_HIPS_EVENT, std::move(strBody), fnDone);
    if (nResult != 0) {
        fnDone(nResult);
    }
}

// A recording or a walk waits for room; what the kernel tells goes on, so there is no waiting.
bool RunSession::TakeRoom(const EventBatch& batch) {
    while (!m_queue.Take(batch.nCopies, batch.strBody.size())) {
        if (m_options.bRefuseWhenFull || MustEnd()) {
            return false;
        }
        Turn();
        m_pReport->Progress(Doing("waiting for room in the queue"));
        m_stop.WaitFor(QUEUE_LOOK);
    }
    return true;
}

// What every loop does that waits or works for long.
void RunSession::Turn() {
    WatchQueue();
    if (m_manager.IsWanted()) {
        TellManager();
    }
    if (m_stop.TakeBalanceRequest()) {
        m_pReport->Balance();
    }
}

void RunSession::TellManager() {
    const uint64_t nWaiting = m_queue.Load().nRows;
    if (m_health.IsSignDue(steady_clock::now(), nWaiting > 0, m_pReport->PassCounters().lastWork)) {
        m_manager.Send("WATCHDOG=1\nSTATUS=" + std::to_string(nWaiting) +
                       " messages wait for the module");
    }
    if (m_health.IsModuleSilent() && !m_bToldSilence) {
        m_manager.Send("STATUS=the module has not been heard of for ten minutes");
        m_output.Error(
            "tevmon-host: the module has not been heard of for ten minutes while messages wait; "
            "the service manager gets no more signs of life");
    }
    m_bToldSilence = m_health.IsModuleSilent();
}

// Announces what changed and sets the count right: messages that were not stored, or that were
// looked at more than once, would falsify it.
void RunSession::WatchQueue() {
    CountAnalysed();
    for (const QueueLoad& load : m_queue.TakeChanges()) {
        m_pReport->OnQueue(load);
    }
    const auto now = steady_clock::now();
    if (now - m_queueLook < QUEUE_CORRECT) {
        return;
    }
    m_queueLook = now;
    const auto depth = database_probe::QueueDepth(m_global.ChannelDatabase());
    if (depth) {
        m_queue.Correct(*depth);
    }
}

// The report counts what the module begins with, from the beginning of each pass.
void RunSession::CountAnalysed() {
    const uint64_t nAnalysed = m_pReport->PassCounters().nAnalysed;
    for (uint64_t i = nAnalysed < m_nAnalysed ? 0 : m_nAnalysed; i < nAnalysed; ++i) {
        m_queue.Analysed();
    }
    m_nAnalysed = nAnalysed;
}

void RunSession::Wait() {
    if (!MustEnd() && !m_due) {
        m_output.Error(
            "tevmon-host: everything is delivered; Ctrl-C ends the run (--drain would "
            "end it when the queue is empty)");
    }
    while (!MustEnd()) {
        Turn();
        m_pReport->Progress("waiting");
        m_stop.WaitFor(QUEUE_LOOK);
    }
}

RunSession::DrainResult RunSession::Drain() {
    std::optional<uint64_t> oldDepth;
    auto moved = steady_clock::now();
    int nUnreadable = 0;
    while (!MustEnd()) {
        Turn();
        // In this order: a message leaves the queue after its queries were posted. While the
        // module is at work a look may meet it deleting a message, which it then keeps for the
        // next time it looks at its queue, five seconds later.
        const auto heard = m_pReport->PassCounters().lastWork;
        const bool bQuiet =
            m_pRouter->Pending() == 0 && (!heard || steady_clock::now() - *heard > MODULE_QUIET);
        const auto depth = bQuiet ? database_probe::QueueDepth(m_global.ChannelDatabase())
                                  : std::optional<uint64_t>();
        if (depth == 0u && m_pRouter->Pending() == 0) {
            return DRAINED;
        }
        nUnreadable = bQuiet && !depth ? nUnreadable + 1 : 0;
        if (nUnreadable >= UNREADABLE_LOOKS) {
            return DRAIN_UNREADABLE;
        }
        if (depth && depth != oldDepth) {
            oldDepth = depth;
            moved = steady_clock::now();
        } else if (depth && steady_clock::now() - moved > QUEUE_STILL) {
            m_output.Error(
                "tevmon-host: the queue has not moved for a while; see its first "
                "message with: tevmon-host queue list");
            moved = steady_clock::now();
        }
        m_pReport->Progress(Doing("waiting for the module"));
        m_stop.WaitFor(QUEUE_LOOK);
    }
    return DRAIN_ENDED;
}

void RunSession::EndModule() {
    m_output.Progress("");
    m_pRouter->EndWaiting();
    m_loader.Stop();
    // Answers under way still find the module's cache; messages under way still find its queue.
    const auto due = steady_clock::now() + LAST_ANSWERS;
    ShutdownSignal clock;
    while (m_pRouter->Pending() > 0 && steady_clock::now() < due) {
        clock.WaitFor(ROUTER_LOOK);
    }
    m_loader.Unload();
    m_pRouter->Close();
}

void RunSession::Summarise() {
    RunEnd end;
    end.bDrained = m_bDrained;
    end.nSignal = m_stop.Signal();
    end.queueDepth = database_probe::QueueDepth(m_global.ChannelDatabase());
    m_pReport->Summary(end);
}
