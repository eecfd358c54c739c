#include "tests/support/TestDir.h"

#include <stdlib.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace fs = std::filesystem;

TestDir::TestDir(bool bDatabaseDir) : m_strOldDir(fs::current_path().string()) {
    std::string strTemplate = (fs::temp_directory_path() / "tevmon-test-XXXXXX").string();
    if (mkdtemp(strTemplate.data()) == nullptr) {
        throw std::runtime_error("cannot make a test directory");
    }
    m_strPath = strTemplate;
    fs::create_directory(m_strPath + "/run");
    if (bDatabaseDir) {
        fs::create_directories(m_strPath + "/data/db");
    }
    fs::current_path(m_strPath + "/run");
}

TestDir::~TestDir() {
    std::error_code ignored;  // a test that failed half-way still leaves as much as it can
    fs::current_path(m_strOldDir, ignored);
    fs::remove_all(m_strPath, ignored);
}

std::string TestDir::Database(const std::string& strName) const {
    return m_strPath + "/data/db/" + strName;
}

std::string TestDir::WriteFile(const std::string& strName, const std::string& strContent,
                               unsigned nMode) const {
    const std::string strFile = m_strPath + "/" + strName;
    fs::create_directories(fs::path(strFile).parent_path());
    std::ofstream(strFile, std::ios::binary) << strContent;
    if (chmod(strFile.c_str(), nMode) != 0) {
        throw std::runtime_error("cannot set the mode of " + strFile);
    }
    return strFile;
}
