#include "host/account/EventExcuse.h"

#include <sys/stat.h>

namespace {

bool Stat(const std::string& strPath, struct stat& status) {
    return strPath.find('\0') == std::string::npos && stat(strPath.c_str(), &status) == 0;
}

}  // namespace

Excuse EventExcuse::Of(const ExpectedQuery& expected) const {
    struct stat status = {};
    if (expected.eKind == EXPECTED_LAUNCH) {
        const bool bThere = Stat(expected.strFile, status) && S_ISREG(status.st_mode);
        return bThere ? EXCUSE_NONE : EXCUSE_VANISHED;
    }
    if (expected.eKind != EXPECTED_PIPE) {
        return EXCUSE_NONE;
    }
    if (Stat(expected.strFile, status) && !S_ISFIFO(status.st_mode)) {
        return EXCUSE_VANISHED;
    }
    return m_fnKnownMaker && m_fnKnownMaker(expected.strProgram) ? EXCUSE_KNOWN_MAKER : EXCUSE_NONE;
}
