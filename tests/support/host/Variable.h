// An environment variable has another value while one lives; with null it is not set.
#ifndef TESTS_SUPPORT_HOST_VARIABLE_H
#define TESTS_SUPPORT_HOST_VARIABLE_H

#include <cstdlib>
#include <optional>
#include <string>

class Variable {
public:
    Variable(const char* pszName, const char* pszValue) : m_strName(pszName) {
        const char* const pszOld = std::getenv(pszName);
        if (pszOld != nullptr) {
            m_old = pszOld;
        }
        Set(pszValue);
    }
    ~Variable() { Set(m_old ? m_old->c_str() : nullptr); }

    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;

private:
    void Set(const char* pszValue) const {
        if (pszValue != nullptr) {
            setenv(m_strName.c_str(), pszValue, 1);
        } else {
            unsetenv(m_strName.c_str());
        }
    }

    const std::string m_strName;
    std::optional<std::string> m_old;
};

#endif
