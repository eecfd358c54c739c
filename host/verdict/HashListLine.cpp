#include "host/verdict/HashListLine.h"

#include <algorithm>
#include <vector>

#include "host/verdict/HexText.h"

namespace {

constexpr size_t MD5_DIGITS = 32;
constexpr size_t SHA1_DIGITS = 40;
constexpr size_t SHA256_DIGITS = 64;
constexpr size_t LONGEST_TAG = 16;  // "SHA512/256" and the like have fewer

HashListLine Bad(const std::string& strProblem) {
    HashListLine line;
    line.eKind = HashListLine::KIND_BAD;
    line.strProblem = strProblem;
    return line;
}

bool IsBlank(char c) {
    return c == ' ' || c == '\t';
}

bool IsDecimal(std::string_view strText) {
    return !strText.empty() && strText.find_first_not_of("0123456789") == std::string_view::npos;
}

// What stands for a name that holds a backslash, a line feed or a carriage return.
bool Unescape(std::string_view strText, std::string& strName) {
    for (size_t i = 0; i < strText.size(); ++i) {
        if (strText[i] != '\\') {
            strName += strText[i];
            continue;
        }
        ++i;
        const char cCode = i < strText.size() ? strText[i] : '\0';
        if (cCode != '\\' && cCode != 'n' && cCode != 'r') {
            return false;
        }
        strName += cCode == 'n' ? '\n' : cCode == 'r' ? '\r' : '\\';
    }
    return true;
}

HashListLine Good(std::string_view strDigest, std::string_view strName, bool bEscaped) {
    HashListLine line;
    const size_t nDigits = hex::CountDigits(strDigest);
    if (nDigits != strDigest.size()) {
        return Bad(
            "the digest holds a character that is no hexadecimal digit; copy the line again");
    }
    if (nDigits == MD5_DIGITS) {
        line.eKind = HashListLine::KIND_MD5;
    } else if (nDigits == SHA1_DIGITS) {
        line.eKind = HashListLine::KIND_SHA1;
    } else if (nDigits == SHA256_DIGITS) {
        line.eKind = HashListLine::KIND_UNUSABLE;
    } else {
        return Bad("the digest has " + std::to_string(nDigits) +
                   " hexadecimal digits, but MD5 has 32 and SHA-1 has 40; make the list again with "
                   "sha1sum or md5sum");
    }
    if (strName.empty()) {
        return Bad("nothing is named after the digest; write what it is of behind two blanks");
    }
    line.strDigest = strDigest;
    if (!bEscaped) {
        line.strName = strName;
    } else if (!Unescape(strName, line.strName)) {
        return Bad(
            "a line that begins with a backslash may hold \\\\, \\n and \\r only; make the list "
            "again with sha1sum or md5sum");
    }
    return line;
}

// Where the "(" of "SHA1 (name) = digest" stands, npos for other lines.
size_t FindTagEnd(std::string_view strLine) {
    const size_t nOpen = strLine.substr(0, LONGEST_TAG).find('(');
    if (nOpen == std::string_view::npos || nOpen == 0) {
        return std::string_view::npos;
    }
    const std::string_view strTag = strLine.substr(0, nOpen - (strLine[nOpen - 1] == ' ' ? 1 : 0));
    const bool bTag = !strTag.empty() && std::all_of(strTag.begin(), strTag.end(), [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
               c == '-' || c == '/';
    });
    return bTag ? nOpen : std::string_view::npos;
}

HashListLine ParseTagged(std::string_view strLine, size_t nOpen, bool bEscaped) {
    std::string_view strTag = strLine.substr(0, nOpen);
    if (strTag.back() == ' ') {
        strTag.remove_suffix(1);
    }
    const size_t nDigits = strTag == "MD5"      ? MD5_DIGITS
                           : strTag == "SHA1"   ? SHA1_DIGITS
                           : strTag == "SHA256" ? SHA256_DIGITS
                                                : 0;
    if (nDigits == 0) {
        return Bad(
            "digests of this kind cannot be used; make the list again with sha1sum or md5sum");
    }
    // A name may hold ")" and "=" itself, the digest cannot.
    const size_t nClose = strLine.rfind(')');
    const size_t nEqual = strLine.find('=', nClose == std::string_view::npos ? 0 : nClose);
    const size_t nDigest = nEqual == std::string_view::npos
                               ? std::string_view::npos
                               : strLine.find_first_not_of(' ', nEqual + 1);
    if (nClose == std::string_view::npos || nClose < nOpen || nDigest == std::string_view::npos ||
        strLine.find_first_not_of(' ', nClose + 1) != nEqual) {
        return Bad("after the name \") = \" and the digest are missing; copy the line again");
    }
    const std::string_view strDigest = strLine.substr(nDigest);
    if (strDigest.size() != nDigits) {
        return Bad("the digest has " + std::to_string(strDigest.size()) + " digits instead of " +
                   std::to_string(nDigits) + "; copy the line again");
    }
    return Good(strDigest, strLine.substr(nOpen + 1, nClose - nOpen - 1), bEscaped);
}

// "digest:size:name", "digest:size:name:minimum" and "digest:size:name:minimum:maximum".
HashListLine ParseSignature(std::string_view strLine) {
    std::vector<std::string_view> fields;
    for (size_t nBegin = 0; nBegin <= strLine.size();) {
        const size_t nEnd = std::min(strLine.find(':', nBegin), strLine.size());
        fields.push_back(strLine.substr(nBegin, nEnd - nBegin));
        nBegin = nEnd + 1;
    }
    const auto isLevel = [](std::string_view strField) { return IsDecimal(strField); };
    if (fields.size() < 3 || fields.size() > 5 ||
        !std::all_of(fields.begin() + 3, fields.end(), isLevel)) {
        return Bad("a signature line reads digest:size:name; copy the line again");
    }
    if (fields[1] != "*" && !IsDecimal(fields[1])) {
        return Bad("the size between the colons is neither a number nor *; copy the line again");
    }
    return Good(fields[0], fields[2], false);
}

}  // namespace

HashListLine ParseHashListLine(std::string_view strLine) {
    if (!strLine.empty() && strLine.back() == '\r') {
        strLine.remove_suffix(1);
    }
    if (strLine.find('\0') != std::string_view::npos) {
        return Bad(
            "it holds a NUL byte, so this is no plain text (a program, UTF-16, or made with "
            "--zero); give a list in plain text");
    }
    while (!strLine.empty() && IsBlank(strLine.front())) {
        strLine.remove_prefix(1);
    }
    if (strLine.empty() || strLine.front() == '#') {
        return {};
    }
    const bool bEscaped = strLine.front() == '\\';
    if (bEscaped) {
        strLine.remove_prefix(1);
    }
    const size_t nOpen = FindTagEnd(strLine);
    if (nOpen != std::string_view::npos) {
        return ParseTagged(strLine, nOpen, bEscaped);
    }
    const size_t nDigits = hex::CountDigits(strLine);
    const std::string_view strRest = strLine.substr(nDigits);
    if (nDigits > 0 && !bEscaped && !strRest.empty() && strRest.front() == ':') {
        return ParseSignature(strLine);
    }
    if (nDigits > 0 && strRest.empty()) {
        return Good(strLine, "", bEscaped);
    }
    if (nDigits > 0 && strRest.size() >= 2 && strRest[0] == ' ' &&
        (strRest[1] == ' ' || strRest[1] == '*')) {
        return Good(strLine.substr(0, nDigits), strRest.substr(2), bEscaped);
    }
    return Bad(
        "this is no line of sha1sum, md5sum, .hdb or .hsb; correct it, or begin it with # to pass "
        "it over");
}
