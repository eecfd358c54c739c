#include "framework/base/Base64Util.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

#include "framework/base/Base64Blocks.h"

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
    std::string strText;
    Base64Append(strText, strData);
    return strText;
}

void Base64Util::Base64Append(std::string& strText, const std::string& strData) {
    const auto* pData = reinterpret_cast<const unsigned char*>(strData.data());
    size_t nWritten = strText.size();
    strText.resize(nWritten + (strData.size() + 2) / 3 * 4);
    size_t nDone = 0;
    if (utils::HasBase64Blocks()) {
        nDone = utils::EncodeBase64Blocks(pData, strData.size(), strText.data() + nWritten);
        nWritten += nDone / 3 * 4;
    }
    for (; nDone < strData.size(); nDone += ENCODE_STEP) {
        const size_t nLength = std::min(strData.size() - nDone, ENCODE_STEP);
        // The encoder ends its output with a NUL: the next step's place, or the string's own NUL.
        nWritten += static_cast<size_t>(
            EVP_EncodeBlock(reinterpret_cast<unsigned char*>(strText.data() + nWritten),
                            pData + nDone, static_cast<int>(nLength)));
    }
}

std::string Base64Util::Base64Decode(const std::string& strText) {
    return Base64Decode(strText.data(), strText.size());
}

// Written out because the library's decoder refuses foreign characters and counts padding as data.
std::string Base64Util::Base64Decode(const char* pText, size_t nLength) {
    std::string strData(nLength / 4 * 3 + 3, '\0');
    size_t nRead = 0;
    if (utils::HasBase64Blocks()) {
        nRead = utils::DecodeBase64Blocks(pText, nLength,
                                          reinterpret_cast<unsigned char*>(strData.data()));
    }
    size_t nWritten = nRead / 4 * 3;
    // Four characters of the alphabet at a time, as far as nothing else stands among them. Written
    // through a pointer of its own: a char may alias the text's, which would be read each time.
    char* const pData = strData.data();
    for (; nRead + 4 <= nLength; nRead += 4) {
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
    for (; nRead < nLength && pText[nRead] != '='; ++nRead) {
        const char c = pText[nRead];
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
