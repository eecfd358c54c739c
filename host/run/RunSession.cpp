#include "host/run/RunSession.h"

#include <utility>

#include "host/process/Privileges.h"
#include "host/process/StateDir.h"
#include "host/run/DrainWait.h"
#include "host/run/KnownMaker.h"
#include "host/run/RunDatabases.h"
#include "host/run/VerdictLists.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds BETWEEN_PROGRESS(250);

}  // namespace

RunSession::RunSession(const HostOptions& global, RunOptions options)
    : m_global(global),
      m_options(std::move(options)),
      m_journal(m_service, MakeKnownMaker(m_service, m_global.CacheDatabase()), m_options.bWatch,
                m_options.nLargestBatch, m_options.bWatch ? &m_holding : nullptr),
      m_listeners(m_options.fnMakeListeners(m_output, m_global, m_journal)),
      m_queue(m_global.ChannelDatabase(), m_options.queue, m_journal) {
    for (const auto& pListener : m_listeners) {
        m_journal.AddListener(*pListener);
    }
}

int RunSession::Fail(int nExitCode, const std::string& strError) {
    m_output.Complain(strError);
    return nExitCode;
}

int RunSession::Run() {
    if (!m_options.bKeepPrivileges) {
        privileges::Confine();
    }
    m_control.Begin();
    m_output.TakeStandardOutput();
    m_pass.nPasses = m_options.nPasses;
    m_pass.strUnit = m_options.strUnit;
    if (!verdict_lists::Load(m_options, m_service, m_output)) {
        return EXIT_CODE_INPUT;
    }
    StateDir stateDir;  // there when the source starts, which leaves it out
    std::string strError;
    if (!stateDir.Enter(m_global.strStateDir, strError)) {
        return Fail(EXIT_CODE_STATE, strError);
    }
    if (!m_holding.Open(m_global.strStateDir, strError)) {
        return Fail(EXIT_CODE_STATE, strError);
    }
    if (!StartSource()) {
        return m_options.nNoSourceCode;
    }
    if (!m_options.bKeepPrivileges) {
        privileges::KeepForWatching();  // the module's threads start with them
    }
    if (!run_databases::Prepare(m_global, strError)) {
        return Fail(EXIT_CODE_DATABASE, strError);
    }
    return RunModule();
}

bool RunSession::StartSource() {
    m_pSource = m_options.fnMakeSource(
        [this](uint64_t nNumber, const std::string& strText) {
            m_journal.Record(InputUnusable{m_pass.strName, nNumber, strText});
        },
        m_sensorObserver, m_holding);
    m_pass.strName = m_pSource->Name();
    std::string strError;
    if (!m_pSource->Start(strError)) {
        (void)Fail(m_options.nNoSourceCode, strError);
        return false;
    }
    return true;
}

int RunSession::RunModule() {
    ModuleSession module(m_global, m_service, m_moduleObserver);
    EventDelivery delivery(module.MessageRouter(), m_queue, m_journal, m_control,
                           m_options.bRefuseWhenFull);
    std::string strError;
    if (!module.Load(strError)) {
        return Fail(EXIT_CODE_MODULE, strError);
    }
    auto held = run_databases::Hold(m_global);
    m_journal.Begin(module.File(), m_queue.Depth().value_or(0));
    m_queue.Begin();
    if (m_options.bWatch) {
        m_digests.Begin();
    }
    module.Start();
    if (m_options.dForSeconds > 0) {
        m_control.EndAfter(m_options.dForSeconds);
    }
    m_signs.Ready();
    const int nExitCode = RunPasses(module, delivery);
    m_signs.Stopping();
    m_output.Progress("");
    module.End();
    m_digests.End();
    held = {};
    run_databases::TidyUp(m_global, m_output);
    Summarise();
    if (m_output.IsBroken()) {
        const std::string strReason = m_output.BrokenReason();
        return strReason.empty() ? static_cast<int>(EXIT_CODE_OUTPUT)
                                 : Fail(EXIT_CODE_OUTPUT, "standard output: " + strReason);
    }
    return nExitCode;
}

int RunSession::RunPasses(ModuleSession& module, EventDelivery& delivery) {
    for (m_pass.nPass = 1; m_pass.nPass <= m_options.nPasses; ++m_pass.nPass) {
        if (m_pass.nPass > 1 && !StartSource()) {
            return m_options.nNoSourceCode;
        }
        m_journal.BeginPass(m_pass);
        Deliver(delivery);
        if (m_options.dSettleSeconds <= 0 && !m_options.bDrain) {
            Wait();
            return EXIT_CODE_SUCCESS;
        }
        const DrainResult eResult =
            WaitUntilDrained(module.MessageRouter(), m_queue, m_journal, m_control,
                             [this](const std::string& strDoing) { Turn(strDoing); });
        m_bDrained = eResult == DRAINED;
        if (m_options.dSettleSeconds > 0) {
            return EXIT_CODE_SUCCESS;
        }
        m_journal.EndPass(m_bDrained);
        if (eResult == DRAIN_UNREADABLE) {
            return Fail(EXIT_CODE_DATABASE, "cannot read the queue " + m_queue.File() +
                                                "; look at it with: tevmon-host queue count");
        }
        if (!m_bDrained) {
            return m_control.Signal() != 0 ? EXIT_CODE_SUCCESS : EXIT_CODE_UNFINISHED;
        }
    }
    return EXIT_CODE_SUCCESS;
}

void RunSession::Deliver(EventDelivery& delivery) {
    m_shown = steady_clock::now();
    delivery.DeliverAll(*m_pSource, [this](const std::string& strDoing) { Turn(strDoing); });
    if (m_options.bWatch) {
        m_holding.pAgain->Close();
    }
    if (m_options.dSettleSeconds > 0) {
        m_control.EndAfter(m_options.dSettleSeconds);
    }
    delivery.WaitForRouter();
}

void RunSession::Wait() {
    if (!m_control.MustEnd() && !m_control.HasLimit()) {
        m_journal.Record(InputDelivered{});
    }
    for (; !m_control.MustEnd(); m_control.WaitFor(BETWEEN_PROGRESS)) {
        Turn("waiting");
    }
}

// What every loop does that waits or works for long.
void RunSession::Turn(const std::string& strDoing) {
    m_queue.Turn();
    m_signs.Turn(m_queue.Waiting(), m_journal.PassCounters().lastWork);
    if (m_control.TakeBalanceRequest()) {
        m_journal.ShowBalance();
    }
    const auto now = steady_clock::now();
    if (now - m_shown < BETWEEN_PROGRESS) {
        return;
    }
    m_shown = now;
    const bool bNumbered = m_options.nPasses > 1 && strDoing != "waiting";
    m_journal.Progress(bNumbered ? "pass " + std::to_string(m_pass.nPass) + ", " + strDoing
                                 : strDoing);
}

void RunSession::Summarise() {
    RunEnd end;
    end.bDrained = m_bDrained;
    end.nSignal = m_control.Signal();
    end.queueDepth = m_queue.Depth();
    m_journal.End(end);
}
