#include "host/account/EventLedger.h"

#include <algorithm>
#include <unordered_map>
#include <utility>

#include "host/base/EscapedText.h"

namespace {

// Queries replace bytes that are not UTF-8 by U+FFFD, so neither counts.
std::string KeyOf(ExpectedKind eKind, const std::string& strOperation, const std::string& strName) {
    static const std::string REPLACEMENT = "\xEF\xBF\xBD";
    std::string strKey = std::to_string(eKind) + strOperation + "\n";
    const size_t nPrefix = strKey.size();
    for (size_t nPos = 0; nPos < strName.size();) {
        const size_t nLength = text::Utf8Length(strName, nPos);
        if (nLength > 0 && strName.compare(nPos, nLength, REPLACEMENT) != 0) {
            strKey.append(strName, nPos, nLength);
        } else if (strKey.size() == nPrefix || strKey.back() != '\0') {
            strKey += '\0';
        }
        nPos += std::max<size_t>(nLength, 1);
    }
    return strKey;
}

size_t TextsOf(const ExpectedQuery& expected) {
    return 2 * (expected.strFile.size() + expected.strProgram.size());
}

}  // namespace

void EventLedger::SetEarlier(uint64_t nMessages) {
    const MutexLock lock(m_mutex);
    m_state.nEarlierWaiting = nMessages;
}

void EventLedger::Report(uint64_t nNumber, const std::string& strBody, uint64_t nEvents,
                         uint64_t nCopies, const std::vector<HeldFileRef>& files) {
    const size_t nHash = std::hash<std::string>()(strBody);
    const MutexLock lock(m_mutex);
    m_state.nSent += nEvents;
    m_state.nWaiting += nEvents;
    for (uint64_t i = 0; i < nCopies; ++i) {
        m_waiting.push_back({nNumber, nHash, nEvents / nCopies, i, files});
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

AnalysedMessage EventLedger::Analyse(const std::string& strBody, Clock::time_point now) {
    std::optional<Message> message = TakeWaiting(std::hash<std::string>()(strBody));
    MessageQueries all = expected_queries::Of(strBody, message ? message->nCopy : 0);
    AnalysedMessage analysed = {message ? message->nNumber : 0, all.nEvents, {}};
    std::vector<Excuse> excuses;
    for (const ExpectedQuery& expected : all.expected) {
        excuses.push_back(m_excuses.Of(expected));
        const HeldFileRef pFile = message ? FileOf(*message, expected) : nullptr;
        if (excuses.back() == EXCUSE_VANISHED && pFile != nullptr) {
            analysed.gone.push_back({expected.nElement, expected.strFile, pFile});
        }
    }
    Expect(std::move(message), std::move(all), excuses, now);
    DropOld(now);
    return analysed;
}

// Of a launch; null when none is held.
HeldFileRef EventLedger::FileOf(const Message& message, const ExpectedQuery& expected) {
    const bool bHeld =
        expected.eKind == EXPECTED_LAUNCH && expected.nElement < message.files.size();
    return bHeld ? message.files[expected.nElement] : nullptr;
}

void EventLedger::Expect(std::optional<Message> message, MessageQueries all,
                         const std::vector<Excuse>& excuses, Clock::time_point now) {
    const MutexLock lock(m_mutex);
    if (message) {
        m_state.nWaiting -= message->nEvents;
        --m_nTaken;
    }
    (message ? m_state.nAnalysed : m_state.nEarlierAnalysed) += all.nEvents;
    m_state.nIgnored += all.nIgnored;
    m_state.nExpected += all.expected.size();
    ++m_nMessages;
    for (size_t i = 0; i < all.expected.size(); ++i) {
        const auto open = m_open.insert(
            m_open.end(), {++m_nOpened, std::move(all.expected[i]), excuses[i], now, {}, {}});
        Count(m_openState, excuses[i]);
        const ExpectedQuery& expected = open->expected;
        open->pFile = message ? FileOf(*message, expected) : nullptr;
        open->nMessage = m_nMessages;
        m_nOpenBytes += TextsOf(expected);
        const ExpectedKind eKind = expected.eKind;
        open->byFile =
            m_byFile.emplace(KeyOf(eKind, expected.strOperation, expected.strFile), open);
        open->byProgram =
            m_byProgram.emplace(KeyOf(eKind, expected.strOperation, expected.strProgram), open);
    }
}

// Which message of this run it is, or nothing. Those that were reported before it and still wait
// were not stored: the module takes the oldest first. So one with the text of a message of ours is
// of an earlier run as long as such wait.
std::optional<EventLedger::Message> EventLedger::TakeWaiting(size_t nHash) {
    const MutexLock lock(m_mutex);
    const auto found =
        std::find_if(m_waiting.begin(), m_waiting.end(),
                     [nHash](const Message& message) { return message.nHash == nHash; });
    if (found == m_waiting.end() || m_state.nEarlierWaiting > 0) {
        m_state.nEarlierWaiting -= m_state.nEarlierWaiting > 0 ? 1 : 0;
        return std::nullopt;
    }
    for (auto it = m_waiting.begin(); it != found; ++it) {
        m_state.nNotStored += it->nEvents;
        m_state.nWaiting -= it->nEvents;
    }
    ++m_nTaken;
    const Message message = *found;
    m_waiting.erase(m_waiting.begin(), std::next(found));
    return message;
}

std::optional<EndedQuery> EventLedger::Match(const ModuleOutcome& outcome) {
    const std::string strKey = KeyOf(outcome.eKind, outcome.strOperation, outcome.strName);
    const MutexLock lock(m_mutex);
    Index& index = outcome.bNamesProgram ? m_byProgram : m_byFile;
    const auto range = index.equal_range(strKey);
    if (range.first == range.second) {
        ++m_state.nUnmatched;
        return std::nullopt;
    }
    const auto found = BestOf(range, outcome);
    uint64_t LedgerState::*const ENDS[] = {&LedgerState::nQueried, &LedgerState::nCached,
                                           &LedgerState::nUnreadable, &LedgerState::nStatFailed};
    ++(m_state.*ENDS[outcome.eEnd]);
    const auto expected = found->second;
    EndedQuery ended = {expected->expected, expected->pFile, expected->bChanged};
    Close(expected);
    return ended;
}

// Of one name they are hashed in their order, and each one before its query or log record.
std::optional<StrayLaunch> EventLedger::Hashed(const std::string& strFile, const IsSame& fnIsSame) {
    const std::string strKey = KeyOf(EXPECTED_LAUNCH, "", strFile);
    StrayLaunch launch;
    std::optional<FileVersion> version;
    uint64_t nNumber = 0;
    {
        const MutexLock lock(m_mutex);
        const uint64_t nInHand = m_nMessages;
        const auto range = m_byFile.equal_range(strKey);
        const auto found = std::find_if(range.first, range.second, [&](const auto& entry) {
            const Open& open = *entry.second;
            return open.nMessage == nInHand && !open.bHashed && open.expected.strFile == strFile;
        });
        if (found == range.second) {
            return std::nullopt;
        }
        Open& open = *found->second;
        open.bHashed = true;
        nNumber = open.nNumber;
        version = open.expected.version;
        launch = {open.expected.nElement, strFile, open.pFile};
    }
    if (fnIsSame(launch.pFile.get(), version)) {
        return std::nullopt;
    }
    const MutexLock lock(m_mutex);
    const auto range = m_byFile.equal_range(strKey);
    for (auto it = range.first; it != range.second; ++it) {
        it->second->bChanged = it->second->bChanged || it->second->nNumber == nNumber;
    }
    return launch;
}

// Several names have one key when they differ in bytes that queries replace: then the oldest of the
// very name, else the oldest that has no excuse for having no query.
EventLedger::Index::iterator EventLedger::BestOf(
    const std::pair<Index::iterator, Index::iterator>& range, const ModuleOutcome& outcome) {
    const auto nameOf = [&](const Index::value_type& entry) -> const std::string& {
        const ExpectedQuery& expected = entry.second->expected;
        return outcome.bNamesProgram ? expected.strProgram : expected.strFile;
    };
    const auto isNamed = [&](const Index::value_type& entry) {
        return nameOf(entry) == outcome.strName;
    };
    const auto isExpected = [](const Index::value_type& entry) {
        return entry.second->eExcuse == EXCUSE_NONE;
    };
    auto best = std::find_if(range.first, range.second, isNamed);
    best = best != range.second ? best : std::find_if(range.first, range.second, isExpected);
    return best != range.second ? best : range.first;
}

void EventLedger::Close(std::list<Open>::iterator expected) {
    Count(m_openState, expected->eExcuse, ~uint64_t{0});
    m_byFile.erase(expected->byFile);
    m_byProgram.erase(expected->byProgram);
    m_nOpenBytes -= TextsOf(expected->expected);
    m_open.erase(expected);
}

// nTimes may be -1 in its unsigned form.
void EventLedger::Count(LedgerState& state, Excuse eExcuse, uint64_t nTimes) {
    state.nVanished += eExcuse == EXCUSE_VANISHED ? nTimes : 0;
    state.nKnownMaker += eExcuse == EXCUSE_KNOWN_MAKER ? nTimes : 0;
    state.nMissing += eExcuse == EXCUSE_NONE ? nTimes : 0;
}

// What is open for so long has no end any more. Their files and programs are examined without the
// lock.
void EventLedger::DropOld(Clock::time_point now) {
    uint64_t nLast = 0;
    std::unordered_map<uint64_t, ExpectedQuery> unexcused;  // by their numbers
    {
        const MutexLock lock(m_mutex);
        size_t nLeft = m_open.size();
        size_t nBytes = m_nOpenBytes;
        for (const Open& open : m_open) {
            if (nLeft <= MOST_EXPECTED && nBytes <= MOST_BYTES &&
                now - open.begun <= LONGEST_OPEN) {
                break;
            }
            nLast = open.nNumber;
            --nLeft;
            nBytes -= TextsOf(open.expected);
            if (open.eExcuse == EXCUSE_NONE) {
                unexcused.emplace(open.nNumber, open.expected);
            }
        }
    }
    std::unordered_map<uint64_t, Excuse> excuses;
    for (const auto& entry : unexcused) {
        excuses[entry.first] = m_excuses.Of(entry.second);
    }
    const MutexLock lock(m_mutex);
    while (!m_open.empty() && m_open.front().nNumber <= nLast) {
        const auto found = excuses.find(m_open.front().nNumber);
        Count(m_state, found == excuses.end() ? m_open.front().eExcuse : found->second);
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
    state.nWaitingMessages = m_waiting.size() + m_nTaken;
    state.nVanished += m_openState.nVanished;
    state.nKnownMaker += m_openState.nKnownMaker;
    state.nMissing += m_openState.nMissing;
    return state;
}

LedgerState EventLedger::FinalState() const {
    LedgerState state;
    std::vector<ExpectedQuery> unexplained;
    {
        const MutexLock lock(m_mutex);
        state = m_state;
        state.nWaitingMessages = m_waiting.size() + m_nTaken;
        for (const Open& open : m_open) {
            if (open.eExcuse == EXCUSE_NONE) {
                unexplained.push_back(open.expected);
            } else {
                Count(state, open.eExcuse);
            }
        }
    }
    for (const ExpectedQuery& expected : unexplained) {
        Count(state, m_excuses.Of(expected));
    }
    return state;
}
