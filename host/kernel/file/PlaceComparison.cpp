#include "host/kernel/file/PlaceComparison.h"

#include <utility>

PlaceComparison::PlaceComparison(const WatchedPaths& places, FileLook fnLook, NamesIn fnNames,
                                 std::chrono::milliseconds every)
    : m_places(places),
      m_every(every),
      m_files(std::move(fnLook), std::move(fnNames), [&places](const std::string& strPath) {
          return WatchedPaths::IsWatched(FILE_CREATE, places.Spelled(strPath));
      }) {}

void PlaceComparison::Begin() {
    (void)Compare();
}

// In doubt, what an event reports does not become known: what was lost may have happened to the
// same file.
void PlaceComparison::CaughtUp(Clock::time_point now, bool bLast, const Result& fnResult) {
    if (!m_bDoubt) {
        m_files.Settle();
        return;
    }
    if (now < m_due && !bLast) {
        return;
    }
    m_bDoubt = false;
    if (!std::exchange(m_bChanged, false)) {
        m_files.Settle();
        m_files.Settle();
    }
    m_due = now + m_every;
    for (const FoundFile& found : Compare()) {
        fnResult(found);
    }
}

std::vector<FoundFile> PlaceComparison::Compare() {
    std::vector<std::string> directories;
    for (const WatchedPaths::Directory& place : m_places.Directories()) {
        directories.push_back(place.strPath);
    }
    std::vector<FoundFile> found = m_files.Compare(directories);
    if (m_files.IsFull() && !std::exchange(m_bFullSaid, true)) {
        m_notices.push_back("more than " + std::to_string(m_files.Size()) +
                            " files in watched places: changes of the others are found by events "
                            "only");
    }
    return found;
}

std::vector<std::string> PlaceComparison::TakeNotices() {
    return std::exchange(m_notices, {});
}
