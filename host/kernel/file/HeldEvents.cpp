#include "host/kernel/file/HeldEvents.h"

#include <sys/fanotify.h>

#include <utility>

void HeldEvents::Add(const char* pBytes, size_t nBytes, int64_t tmRead) {
    m_pieces.emplace_back();
    m_pieces.back().bytes.assign(pBytes, pBytes + nBytes);
    m_pieces.back().tmRead = tmRead;
    m_nBytes += nBytes;
}

std::string_view HeldEvents::Oldest() const {
    const std::vector<char>& bytes = m_pieces.front().bytes;
    return {bytes.data(), bytes.size()};
}

void HeldEvents::RemoveOldest() {
    m_nBytes -= m_pieces.front().bytes.size();
    m_pieces.pop_front();
}

std::optional<FileSpot> HeldEvents::WhereRemoved(std::string_view strHandle) {
    for (Piece& piece : m_pieces) {
        FindRemoved(piece);
        const auto found = piece.removed.find(strHandle);
        if (found != piece.removed.end()) {
            return found->second;
        }
    }
    return std::nullopt;
}

void HeldEvents::FindRemoved(Piece& piece) {
    if (std::exchange(piece.bSearched, true)) {
        return;
    }
    FileEventReader reader(piece.bytes.data(), piece.bytes.size());
    FileEvent event;
    while (reader.Next(event)) {
        if ((event.nMask & FAN_DELETE) != 0 && (event.nMask & FAN_ONDIR) != 0 &&
            !event.strTarget.empty()) {
            piece.removed.emplace(event.strTarget, event.spot);
        }
    }
}
