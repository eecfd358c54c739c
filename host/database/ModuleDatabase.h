// A database of the module, made ready before the module opens it and tidied up after it let go.
//
// While a module works the file has a write-ahead log: a reader then never makes one of the
// module's statements fail as busy. At rest it is one ordinary file without companions. Its tables
// are the module's own business.
//
// Threads: the control thread. Prepare and TidyUp want no other connection of this process to the
//   file: the first would take its locks away, the second finds it busy.
// Errors: texts that name the file and what to do; nothing throws but std::bad_alloc.
#ifndef HOST_DATABASE_MODULEDATABASE_H
#define HOST_DATABASE_MODULEDATABASE_H

#include <chrono>
#include <cstdint>
#include <string>

#include "host/database/SqliteConnection.h"

class ModuleDatabase {
public:
    explicit ModuleDatabase(const std::string& strFile) : m_strFile(strFile) {}

    ModuleDatabase(const ModuleDatabase&) = delete;
    ModuleDatabase& operator=(const ModuleDatabase&) = delete;

    // Makes the file when it is missing and gives it mode 0600 and a write-ahead log. What a writer
    // that was killed left behind is completed or undone. False when others could read or swap the
    // file, when it is damaged, or when somebody else keeps it busy.
    bool Prepare(std::string& strError);

    // Gives space back to the file system when a quarter of the file or more is free, and puts the
    // log into the file. What does not succeed is not lost, only bigger.
    bool TidyUp(std::string& strError);

    // Bytes of pages that hold something; 0 when it cannot be read. Between Prepare and the module.
    uint64_t UsedBytes();

private:
    bool TakeFile(std::string& strError) const;
    bool Open(std::chrono::milliseconds busy, std::string& strError);
    int64_t Number(const char* pszSql) const;
    bool IsWhole(std::string& strError);
    std::string Reason(const char* pszWhat) const;

    const std::string m_strFile;
    SqliteConnection m_connection;
    std::chrono::steady_clock::time_point m_due;  // of the statement that has a time limit
};

#endif
