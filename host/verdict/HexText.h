// Hexadecimal text, either case, independent of the locale.
//
// Threads: any; no state. Errors: none but std::bad_alloc.
#ifndef HOST_VERDICT_HEXTEXT_H
#define HOST_VERDICT_HEXTEXT_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace hex {

// How many hexadecimal digits strText begins with.
size_t CountDigits(std::string_view strText);

// strText with A to F in lower case.
std::string ToLower(std::string_view strText);

// Reads exactly 2 * nBytes digits into pBytes. False, with nothing written, for another text.
bool Decode(std::string_view strText, uint8_t* pBytes, size_t nBytes);

template <size_t N>
bool Decode(std::string_view strText, std::array<uint8_t, N>& bytes) {
    return Decode(strText, bytes.data(), N);
}

}  // namespace hex

#endif
