#include "host/program/DigestLanes.h"

#include <pthread.h>

#include <csignal>
#include <exception>
#include <utility>

#include "framework/digest/FileHash.h"

namespace {

constexpr const char* THREAD_NAMES[] = {"digest_small", "digest_large"};

// Threads that start meanwhile get no signals: those are for the thread that waits for them.
class NoSignals {
public:
    NoSignals() {
        sigset_t allSet;
        sigfillset(&allSet);
        pthread_sigmask(SIG_SETMASK, &allSet, &m_oldSet);
    }
    ~NoSignals() { pthread_sigmask(SIG_SETMASK, &m_oldSet, nullptr); }

    NoSignals(const NoSignals&) = delete;
    NoSignals& operator=(const NoSignals&) = delete;

private:
    sigset_t m_oldSet;
};

}  // namespace

DigestLanes::DigestLanes(DigestLanesOptions options)
    : m_options(std::move(options)), m_recent(m_options.nMostRemembered) {
    for (std::unique_ptr<DigestReader>& pReader : m_readers) {
        pReader = std::make_unique<DigestReader>(m_options.fnRead, m_bStop, m_nBytes);
    }
}

DigestLanes::~DigestLanes() {
    End();
}

void DigestLanes::Begin(Done fnDone) {
    m_fnDone = std::move(fnDone);
    {
        const MutexLock lock(m_mutex);
        m_bRunning = true;
    }
    const NoSignals noSignals;
    try {
        for (size_t nLane = 0; nLane < LANES; ++nLane) {
            m_threads[nLane] = std::thread(&DigestLanes::Run, this, nLane);
            (void)pthread_setname_np(m_threads[nLane].native_handle(), THREAD_NAMES[nLane]);
        }
    } catch (...) {
        End();
        throw;
    }
}

void DigestLanes::End() {
    {
        const MutexLock lock(m_mutex);
        m_bRunning = false;
        m_bStop = true;
        m_changed.NotifyAll();
    }
    for (std::thread& thread : m_threads) {
        if (thread.joinable()) {
            thread.join();
        }
    }
}

// What is too large is not read and keeps nobody waiting.
size_t DigestLanes::LaneOf(const HeldFile& file) const {
    const off_t nSize = file.Status().st_size;
    return nSize > m_options.nSmallSize && nSize <= utils::HASH_SIZE_LIMIT ? LARGE : SMALL;
}

std::optional<ProgramDigest> DigestLanes::Ask(HeldFileRef pFile) {
    const size_t nLane = LaneOf(*pFile);
    const size_t nMost = nLane == SMALL ? m_options.nMostSmall : m_options.nMostLarge;
    const FileVersion version = pFile->Version();
    std::list<HeldFileRef> added;
    added.push_back(std::move(pFile));

    const MutexLock lock(m_mutex);
    if (version.IsKnown()) {
        if (const DigestBytes* const pBytes = m_recent.Find(version)) {
            return pBytes->Text();
        }
        if (m_open.count(version) != 0) {
            return std::nullopt;
        }
    }
    if (!m_bRunning || m_waiting[nLane].size() >= nMost) {
        ++m_nLeftOut;
        return ProgramDigest();
    }
    if (version.IsKnown()) {
        m_open.insert(version);
    }
    m_waiting[nLane].splice(m_waiting[nLane].end(), added);
    m_changed.NotifyAll();
    return std::nullopt;
}

std::optional<ProgramDigest> DigestLanes::Known(const FileVersion& version) const {
    const MutexLock lock(m_mutex);
    const DigestBytes* const pBytes = m_recent.Find(version);
    return pBytes != nullptr ? std::optional<ProgramDigest>(pBytes->Text()) : std::nullopt;
}

DigestCounts DigestLanes::Counts() const {
    const MutexLock lock(m_mutex);
    return {m_nFiles, m_nBytes, m_nLeftOut};
}

void DigestLanes::Run(size_t nLane) {
    if (m_options.fnOnLane) {
        m_options.fnOnLane();
    }
    MutexLock lock(m_mutex);
    for (;;) {
        while (m_bRunning && m_waiting[nLane].empty()) {
            m_changed.Wait(m_mutex);
        }
        if (m_waiting[nLane].empty()) {
            return;
        }
        std::list<HeldFileRef> inHand;
        inHand.splice(inHand.end(), m_waiting[nLane], m_waiting[nLane].begin());
        lock.Unlock();
        Serve(*m_readers[nLane], *inHand.front());
        inHand.clear();  // closes the file before the lock is taken again
        lock.Lock();
    }
}

void DigestLanes::Serve(DigestReader& reader, const HeldFile& file) {
    const FileVersion& version = file.Version();
    DigestBytes bytes;
    ProgramDigest digest;
    digest.eEnd = reader.Read(file, bytes);
    try {
        const bool bRead = bytes.md5 != DigestBytes().md5;
        if (digest.eEnd == DIGEST_DONE || (digest.eEnd == DIGEST_CHANGED && bRead)) {
            const DigestEnd eEnd = digest.eEnd;
            digest = bytes.Text();
            digest.eEnd = eEnd;
        }
    } catch (const std::exception&) {  // no memory: a file that could not be read
        digest.eEnd = DIGEST_UNREADABLE;
    }
    Close(version, digest.eEnd, bytes);
    try {
        m_fnDone(version, digest);
    } catch (const std::exception&) {  // the next file is read all the same
    }
}

void DigestLanes::Close(const FileVersion& version, DigestEnd eEnd, const DigestBytes& bytes) {
    const MutexLock lock(m_mutex);
    m_open.erase(version);
    ++(eEnd == DIGEST_LEFT_OUT ? m_nLeftOut : m_nFiles);
    if (eEnd != DIGEST_DONE || !version.IsKnown()) {
        return;
    }
    try {
        m_recent.Keep(version, bytes);
    } catch (const std::exception&) {  // no memory: it is read again when somebody asks
    }
}
