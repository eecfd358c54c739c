#include "host/verdict/HexText.h"

namespace {

// 0 to 15, or -1.
int DigitValue(char cDigit) {
    if (cDigit >= '0' && cDigit <= '9') {
        return cDigit - '0';
    }
    if (cDigit >= 'a' && cDigit <= 'f') {
        return cDigit - 'a' + 10;
    }
    if (cDigit >= 'A' && cDigit <= 'F') {
        return cDigit - 'A' + 10;
    }
    return -1;
}

}  // namespace

namespace hex {

size_t CountDigits(std::string_view strText) {
    size_t nDigits = 0;
    while (nDigits < strText.size() && DigitValue(strText[nDigits]) >= 0) {
        ++nDigits;
    }
    return nDigits;
}

std::string ToLower(std::string_view strText) {
    std::string strLower(strText);
    for (char& c : strLower) {
        if (c >= 'A' && c <= 'F') {
            c = static_cast<char>(c - 'A' + 'a');
        }
    }
    return strLower;
}

bool Decode(std::string_view strText, uint8_t* pBytes, size_t nBytes) {
    if (strText.size() != 2 * nBytes || CountDigits(strText) != strText.size()) {
        return false;
    }
    for (size_t i = 0; i < nBytes; ++i) {
        const int nHigh = DigitValue(strText[2 * i]);
        const int nLow = DigitValue(strText[2 * i + 1]);
        pBytes[i] = static_cast<uint8_t>(nHigh * 16 + nLow);
    }
    return true;
}

}  // namespace hex
