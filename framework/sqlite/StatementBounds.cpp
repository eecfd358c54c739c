#include "framework/sqlite/StatementBounds.h"

#include <strings.h>

#include <cstring>

namespace {

constexpr int MOST_BYTES = 1000;
constexpr int MOST_SELECTS = 3;
constexpr int MOST_JOINTS = 4;

bool IsWordByte(char ch) {
    return (ch >= 'a' && ch <= 'z') || (ch >= 'A' && ch <= 'Z') || (ch >= '0' && ch <= '9') ||
           ch == '_' || ch == '$' || (ch & 0x80) != 0;
}

// The byte behind the quoted text that begins at psz: a doubled quote does not end it.
const char* BehindQuoted(const char* psz) {
    const char chQuote = *psz == '[' ? ']' : *psz;
    for (const char* pszEnd = strchr(psz + 1, chQuote); pszEnd != nullptr;
         pszEnd = strchr(pszEnd + 2, chQuote)) {
        if (chQuote == ']' || pszEnd[1] != chQuote) {
            return pszEnd + 1;
        }
    }
    return psz + strlen(psz);
}

const char* BehindComment(const char* psz) {
    const char* pszEnd = *psz == '-' ? strchr(psz, '\n') : strstr(psz + 2, "*/");
    return pszEnd == nullptr ? psz + strlen(psz) : pszEnd + (*psz == '-' ? 1 : 2);
}

bool BeginsComment(const char* psz) {
    return (psz[0] == '-' && psz[1] == '-') || (psz[0] == '/' && psz[1] == '*' && psz[2] != '\0');
}

bool IsSelect(const char* pszWord, size_t nLength) {
    return nLength == 6 && (strncasecmp(pszWord, "select", nLength) == 0 ||
                            strncasecmp(pszWord, "values", nLength) == 0);
}

}  // namespace

bool IsWithinBounds(const char* pszSQL) {
    int nBytes = 0, nSelects = 0, nJoints = 0;
    for (const char* psz = pszSQL; *psz != '\0';) {
        const char* pszNext = psz + 1;
        if (strchr("'\"`[", *psz) != nullptr) {
            pszNext = BehindQuoted(psz);
            nBytes += 2;
        } else if (BeginsComment(psz)) {
            pszNext = BehindComment(psz);
            ++nBytes;
        } else if (IsWordByte(*psz)) {
            while (IsWordByte(*pszNext)) {
                ++pszNext;
            }
            nSelects += IsSelect(psz, static_cast<size_t>(pszNext - psz)) ? 1 : 0;
            nBytes += static_cast<int>(pszNext - psz);
        } else {
            const bool bJoint = psz[0] == '|' && psz[1] == '|';
            nJoints += bJoint ? 1 : 0;
            pszNext += bJoint ? 1 : 0;
            ++nBytes;
        }
        if (nBytes > MOST_BYTES || nSelects > MOST_SELECTS || nJoints > MOST_JOINTS) {
            return false;
        }
        psz = pszNext;
    }
    return true;
}
