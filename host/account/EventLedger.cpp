#include "host/account/EventLedger.h"

#include <sys/stat.h>

#include <algorithm>
#include <utility>
#include <vector>

namespace {

// Queries replace bytes that are not UTF-8, so those of other than ASCII do not count.
std::string KeyOf(QuestionKind eKind, const std::string& strOperation, const std::string& strName) {
    std::string strKey = std::to_string(eKind) + strOperation + "\n";
    const size_t nPrefix = strKey.size();
    for (const char c : strName) {
        const bool bOther = (static_cast<unsigned char>(c) & 0x80) != 0;
        if (!bOther) {
            strKey += c;
        } else if (strKey.size() == nPrefix || strKey.back() != '\0') {
            strKey += '\0';
        }
    }
    return strKey;
}

size_t TextsOf(const ModuleQuestion& question) {
    return 2 * (question.strFile.size() + question.strProgram.size());
}

bool Stat(const std::string& strPath, struct stat& status) {
    return strPath.find('\0') == std::string::npos && stat(strPath.c_str(), &status) == 0;
}

}  // namespace

void EventLedger::SetEarlier(uint64_t nMessages) {
    const MutexLock lock(m_mutex);
    m_state.nEarlierWaiting = nMessages;
}

void EventLedger::Send(uint64_t nNumber, const std::string& strBody, uint64_t nEvents,
                       uint64_t nCopies) {
    const size_t nHash = std::hash<std::string>()(strBody);
    const MutexLock lock(m_mutex);
    m_state.nSent += nEvents;
    m_state.nWaiting += nEvents;
    for (uint64_t i = 0; i < nCopies; ++i) {
        m_waiting.push_back({nNumber, nHash, nEvents / nCopies});
    }
}

void EventLedger::Refuse(uint64_t nNumber) {
    const MutexLock lock(m_mutex);
    const auto isOfMessage = [nNumber](const Message& message) {
        return message.nNumber == nNumber;
    };
    for (auto it = std::find_if(m_waiting.begin(), m_waiting.end(), isOfMessage);
         it != m_waiting.end() && isOfMessage(*it); it = m_waiting.erase(it)) {
        m_state.nRefused += it->nEvents;
        m_state.nWaiting -= it->nEvents;
    }
}

void EventLedger::Begin(const std::string& strBody, Clock::time_point now) {
    const size_t nHash = std::hash<std::string>()(strBody);
    MessageQuestions all = expected_queries::Of(strBody);
    std::vector<Excuse> excuses;
    for (const ModuleQuestion& question : all.questions) {
        excuses.push_back(ExcuseOf(question));
    }
    const MutexLock lock(m_mutex);
    (TakeWaiting(nHash) ? m_state.nBegun : m_state.nEarlierBegun) += all.nEvents;
    m_state.nNoInterest += all.nNoInterest;
    m_state.nQuestions += all.questions.size();
    for (size_t i = 0; i < all.questions.size(); ++i) {
        const auto open =
            m_open.insert(m_open.end(), {std::move(all.questions[i]), excuses[i], now, {}, {}});
        Count(m_openState, excuses[i]);
        const ModuleQuestion& question = open->question;
        m_nOpenBytes += TextsOf(question);
        const QuestionKind eKind = question.eKind;
        open->byFile =
            m_byFile.emplace(KeyOf(eKind, question.strOperation, question.strFile), open);
        open->byProgram =
            m_byProgram.emplace(KeyOf(eKind, question.strOperation, question.strProgram), open);
    }
    DropOld(now);
}

// Whether the message is one of this run. Those that were handed over before
// it and still wait were not stored: the module takes the oldest first.
bool EventLedger::TakeWaiting(size_t nHash) {
    const auto found =
        std::find_if(m_waiting.begin(), m_waiting.end(),
                     [nHash](const Message& message) { return message.nHash == nHash; });
    if (found == m_waiting.end()) {
        m_state.nEarlierWaiting -= m_state.nEarlierWaiting > 0 ? 1 : 0;
        return false;
    }
    for (auto it = m_waiting.begin(); it != found; ++it) {
        m_state.nNotStored += it->nEvents;
        m_state.nWaiting -= it->nEvents;
    }
    m_state.nWaiting -= found->nEvents;
    m_state.nEarlierWaiting = 0;
    m_waiting.erase(m_waiting.begin(), std::next(found));
    return true;
}

EventLedger::Excuse EventLedger::ExcuseOf(const ModuleQuestion& question) const {
    struct stat status = {};
    if (question.eKind == QUESTION_LAUNCH) {
        const bool bThere = Stat(question.strFile, status) && S_ISREG(status.st_mode);
        return bThere ? EXCUSE_NONE : EXCUSE_GONE;
    }
    if (question.eKind != QUESTION_PIPE) {
        return EXCUSE_NONE;
    }
    if (Stat(question.strFile, status) && !S_ISFIFO(status.st_mode)) {
        return EXCUSE_GONE;
    }
    return m_fnKnownMaker && m_fnKnownMaker(question.strProgram) ? EXCUSE_KNOWN_MAKER : EXCUSE_NONE;
}

std::optional<ModuleQuestion> EventLedger::Hear(const ModuleSign& sign) {
    const std::string strKey = KeyOf(sign.eKind, sign.strOperation, sign.strName);
    const MutexLock lock(m_mutex);
    Index& index = sign.bNamesProgram ? m_byProgram : m_byFile;
    const auto found = index.find(strKey);
    if (found == index.end()) {
        ++m_state.nBeside;
        return std::nullopt;
    }
    uint64_t LedgerState::*const ENDS[] = {&LedgerState::nQueried, &LedgerState::nCached,
                                           &LedgerState::nNoHash, &LedgerState::nNoStat};
    ++(m_state.*ENDS[sign.eEnd]);
    const auto question = found->second;
    ModuleQuestion ended = question->question;
    Close(question);
    return ended;
}

void EventLedger::Close(std::list<Open>::iterator question) {
    Count(m_openState, question->eExcuse, ~uint64_t{0});
    m_byFile.erase(question->byFile);
    m_byProgram.erase(question->byProgram);
    m_nOpenBytes -= TextsOf(question->question);
    m_open.erase(question);
}

// nTimes may be -1 in its unsigned form.
void EventLedger::Count(LedgerState& state, Excuse eExcuse, uint64_t nTimes) {
    state.nGone += eExcuse == EXCUSE_GONE ? nTimes : 0;
    state.nKnownMaker += eExcuse == EXCUSE_KNOWN_MAKER ? nTimes : 0;
    state.nSilent += eExcuse == EXCUSE_NONE ? nTimes : 0;
}

// What is open for so long is not heard of any more. Few are, so that a look
// at their files here costs nothing.
void EventLedger::DropOld(Clock::time_point now) {
    while (!m_open.empty() && (m_open.size() > MOST_QUESTIONS || m_nOpenBytes > MOST_BYTES ||
                               now - m_open.front().begun > LONGEST_OPEN)) {
        const Open& oldest = m_open.front();
        Count(m_state, oldest.eExcuse != EXCUSE_NONE ? oldest.eExcuse : ExcuseOf(oldest.question));
        Close(m_open.begin());
    }
}

void EventLedger::End(uint64_t nStoredMessages) {
    const MutexLock lock(m_mutex);
    const uint64_t nOurs = nStoredMessages - std::min(nStoredMessages, m_state.nEarlierWaiting);
    while (m_waiting.size() > nOurs) {
        m_state.nNotStored += m_waiting.back().nEvents;
        m_state.nWaiting -= m_waiting.back().nEvents;
        m_waiting.pop_back();
    }
}

LedgerState EventLedger::State() const {
    const MutexLock lock(m_mutex);
    LedgerState state = m_state;
    state.nWaitingMessages = m_waiting.size();
    state.nGone += m_openState.nGone;
    state.nKnownMaker += m_openState.nKnownMaker;
    state.nSilent += m_openState.nSilent;
    return state;
}

LedgerState EventLedger::FinalState() const {
    LedgerState state;
    std::vector<ModuleQuestion> unexplained;
    {
        const MutexLock lock(m_mutex);
        state = m_state;
        state.nWaitingMessages = m_waiting.size();
        for (const Open& open : m_open) {
            if (open.eExcuse == EXCUSE_NONE) {
                unexplained.push_back(open.question);
            } else {
                Count(state, open.eExcuse);
            }
        }
    }
    for (const ModuleQuestion& question : unexplained) {
        Count(state, ExcuseOf(question));
    }
    return state;
}
