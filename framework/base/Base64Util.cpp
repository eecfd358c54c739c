#include "framework/base/Base64Util.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

namespace {

// What one call of the encoder takes: a multiple of 3, and lengths that fit its int.
constexpr size_t ENCODE_STEP = 3 * 256 * 1024 * 1024;

constexpr uint8_t FOREIGN = 0xff;
constexpr uint32_t NOT_A_SEXTET = 0xc0;  // bits that only FOREIGN has

constexpr std::array<uint8_t, 256> MakeDecodeTable() {
    constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::array<uint8_t, 256> table{};
    for (size_t i = 0; i < table.size(); ++i) {
        table[i] = FOREIGN;
    }
    for (uint8_t i = 0; i < 64; ++i) {
        table[static_cast<uint8_t>(alphabet[i])] = i;
    }
    return table;
}

constexpr std::array<uint8_t, 256> DECODE_TABLE = MakeDecodeTable();

uint32_t ValueOf(char c) {
    return DECODE_TABLE[static_cast<uint8_t>(c)];
}

}  // namespace

std::string Base64Util::Base64Encode(const std::string& strData) {
    const auto* pData = reinterpret_cast<const unsigned char*>(strData.data());
    std::string strText((strData.size() + 2) / 3 * 4, '\0');
    size_t nWritten = 0;
    for (size_t nDone = 0; nDone < strData.size(); nDone += ENCODE_STEP) {
        const size_t nLength = std::min(strData.size() - nDone, ENCODE_STEP);
        // The encoder ends its output with a NUL: the next step's place, or the string's own NUL.
        nWritten += static_cast<size_t>(
            EVP_EncodeBlock(reinterpret_cast<unsigned char*>(strText.data() + nWritten),
                            pData + nDone, static_cast<int>(nLength)));
    }
    return strText;
}

// Written out because the library's decoder refuses foreign characters and counts padding as data.
std::string Base64Util::Base64Decode(const std::string& strText) {
    std::string strData(strText.size() / 4 * 3 + 3, '\0');
    size_t nWritten = 0;
    size_t nRead = 0;
    // Four characters of the alphabet at a time, as far as nothing else stands among them. Written
    // through a pointer of its own: a char may alias the text's, which would be read each time.
    const char* const pText = strText.data();
    char* const pData = strData.data();
    for (const size_t nEnd = strText.size(); nRead + 4 <= nEnd; nRead += 4) {
        const uint32_t nFirst = ValueOf(pText[nRead]);
        const uint32_t nSecond = ValueOf(pText[nRead + 1]);
        const uint32_t nThird = ValueOf(pText[nRead + 2]);
        const uint32_t nFourth = ValueOf(pText[nRead + 3]);
        if (((nFirst | nSecond | nThird | nFourth) & NOT_A_SEXTET) != 0) {
            break;
        }
        pData[nWritten++] = static_cast<char>(nFirst << 2 | nSecond >> 4);
        pData[nWritten++] = static_cast<char>(nSecond << 4 | nThird >> 2);
        pData[nWritten++] = static_cast<char>(nThird << 6 | nFourth);
    }
    uint32_t nBits = 0;  // the sextets not written yet, at most three
    int nSextets = 0;
    for (; nRead < strText.size() && strText[nRead] != '='; ++nRead) {
        const char c = strText[nRead];
        const uint32_t nValue = ValueOf(c);
        if (nValue == FOREIGN) {
            continue;
        }
        nBits = nBits << 6 | nValue;
        if (++nSextets == 4) {
            strData[nWritten++] = static_cast<char>(nBits >> 16);
            strData[nWritten++] = static_cast<char>(nBits >> 8);
            strData[nWritten++] = static_cast<char>(nBits);
            nSextets = 0;
        }
    }
    if (nSextets == 3) {
        strData[nWritten++] = static_cast<char>(nBits >> 10);
        strData[nWritten++] = static_cast<char>(nBits >> 2);
    } else if (nSextets == 2) {
        strData[nWritten++] = static_cast<char>(nBits >> 4);
    }
    strData.resize(nWritten);
    return strData;
}
