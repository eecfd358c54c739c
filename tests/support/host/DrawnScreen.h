// What stands on a terminal that is drawn line by line, as somebody before it would see it.
#ifndef TESTS_SUPPORT_HOST_DRAWNSCREEN_H
#define TESTS_SUPPORT_HOST_DRAWNSCREEN_H

#include <cstdlib>
#include <functional>
#include <map>
#include <string>

#include "tests/support/Pty.h"

class DrawnScreen {
public:
    explicit DrawnScreen(const Pty& pty) : m_pty(pty) {}

    // Line nLine, counted from 1, once it is strLine; else as it is after many screens without.
    std::string Await(size_t nLine, const std::string& strLine) {
        return AwaitThat(nLine,
                         [&strLine](const std::string& strNow) { return strNow == strLine; });
    }
    // Likewise once strText stands in it.
    std::string AwaitText(size_t nLine, const std::string& strText) {
        return AwaitThat(nLine, [&strText](const std::string& strNow) {
            return strNow.find(strText) != std::string::npos;
        });
    }

private:
    static constexpr int MANY = 60;  // the clock alone makes one a second

    std::string AwaitThat(size_t nLine, const std::function<bool(const std::string&)>& fnIs) {
        for (int i = 0; i < MANY && !fnIs(m_lines[nLine]); ++i) {
            m_strUnread += m_pty.ReadUntil("\033[K");
            Show();
        }
        return m_lines[nLine];
    }

    // All that is read but a sequence whose end is not there yet.
    void Show() {
        size_t nPos = 0;
        while (nPos < m_strUnread.size()) {
            if (m_strUnread[nPos] != '\033') {
                m_lines[m_nLine] += m_strUnread[nPos++];
                continue;
            }
            const size_t nEnd = m_strUnread.find_first_of("hlmHJK", nPos);
            if (nEnd == std::string::npos) {
                break;
            }
            Obey(m_strUnread.substr(nPos, nEnd + 1 - nPos));
            nPos = nEnd + 1;
        }
        m_strUnread.erase(0, nPos);
    }

    void Obey(const std::string& strSequence) {
        switch (strSequence.back()) {
            case 'H':
                m_nLine = std::strtoul(strSequence.c_str() + 2, nullptr, 10);
                break;
            case 'J':
                m_lines.clear();
                break;
            case 'K':
                m_lines[m_nLine].clear();
                break;
            case 'm':
                m_lines[m_nLine] += strSequence;
                break;
            default:  // another screen, the cursor
                break;
        }
    }

    const Pty& m_pty;
    std::string m_strUnread;
    size_t m_nLine = 0;
    std::map<size_t, std::string> m_lines;
};

#endif
