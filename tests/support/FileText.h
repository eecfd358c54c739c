// What a file holds, for tests.
#ifndef TESTS_SUPPORT_FILETEXT_H
#define TESTS_SUPPORT_FILETEXT_H

#include <fstream>
#include <sstream>
#include <string>

// All its bytes; "" when it cannot be read.
inline std::string FileText(const std::string& strPath) {
    std::ostringstream text;
    text << std::ifstream(strPath, std::ios::binary).rdbuf();
    return text.str();
}

#endif
