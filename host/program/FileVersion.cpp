#include "host/program/FileVersion.h"

#include <charconv>
#include <functional>
#include <string_view>

namespace {

template <class Number>
bool TakeNumber(std::string_view& strText, Number& nNumber, bool bLast) {
    const char* const pszEnd = strText.data() + strText.size();
    const auto read = std::from_chars(strText.data(), pszEnd, nNumber);
    if (read.ec != std::errc() || (read.ptr == pszEnd) != bLast || (!bLast && *read.ptr != ':')) {
        return false;
    }
    strText.remove_prefix(static_cast<size_t>(read.ptr - strText.data()) + (bLast ? 0 : 1));
    return true;
}

}  // namespace

size_t FileVersionHash::operator()(const FileVersion& version) const {
    constexpr uint64_t SPREAD = 0x9E3779B97F4A7C15;
    uint64_t nHash = version.nDevice;
    for (const uint64_t nPart :
         {version.nInode, version.nSize, static_cast<uint64_t>(version.nChanged), version.nFresh}) {
        nHash = (nHash ^ nPart) * SPREAD;
        nHash ^= nHash >> 32;
    }
    return nHash;
}

std::string file_version::Text(const FileVersion& version) {
    return std::to_string(version.nDevice) + ":" + std::to_string(version.nInode) + ":" +
           std::to_string(version.nSize) + ":" + std::to_string(version.nChanged);
}

std::optional<FileVersion> file_version::Parse(const std::string& strText) {
    std::string_view strRest = strText;
    FileVersion version;
    const bool bRead =
        TakeNumber(strRest, version.nDevice, false) && TakeNumber(strRest, version.nInode, false) &&
        TakeNumber(strRest, version.nSize, false) && TakeNumber(strRest, version.nChanged, true);
    return bRead ? std::optional<FileVersion>(version) : std::nullopt;
}
