// A directory of the test's own, as a host prepares one: <dir>/data/db for the databases and
// <dir>/run as the process's current directory, from which ../data/db resolves.
#ifndef TESTS_SUPPORT_TESTDIR_H
#define TESTS_SUPPORT_TESTDIR_H

#include <string>

class TestDir {
public:
    // Makes it and changes into <dir>/run. Without bDatabaseDir there is no data/db.
    explicit TestDir(bool bDatabaseDir = true);
    ~TestDir();  // changes back and removes everything

    TestDir(const TestDir&) = delete;
    TestDir& operator=(const TestDir&) = delete;

    const std::string& Path() const { return m_strPath; }    // absolute, without a final "/"
    std::string Database(const std::string& strName) const;  // <dir>/data/db/<name>

    // Writes <dir>/<name> (directories are made) and returns its path.
    std::string WriteFile(const std::string& strName, const std::string& strContent,
                          unsigned nMode = 0644) const;

private:
    std::string m_strPath;
    std::string m_strOldDir;
};

#endif
