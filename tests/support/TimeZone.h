// Sets the process's time zone while it lives. pszZone is a POSIX text ("UTC0", "EAST-5:30"), which
// needs no time zone files on the machine.
#ifndef TESTS_SUPPORT_TIMEZONE_H
#define TESTS_SUPPORT_TIMEZONE_H

#include <stdlib.h>
#include <time.h>

#include <optional>
#include <string>

class TimeZone {
public:
    explicit TimeZone(const char* pszZone) {
        const char* pszOld = getenv("TZ");
        if (pszOld != nullptr) {
            m_oldZone = pszOld;
        }
        setenv("TZ", pszZone, 1);
        tzset();
    }
    ~TimeZone() {
        if (m_oldZone) {
            setenv("TZ", m_oldZone->c_str(), 1);
        } else {
            unsetenv("TZ");
        }
        tzset();
    }

    TimeZone(const TimeZone&) = delete;
    TimeZone& operator=(const TimeZone&) = delete;

private:
    std::optional<std::string> m_oldZone;
};

#endif
