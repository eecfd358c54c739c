// A directory of the process's own, as a host prepares one, with nothing printed or logged: what
// targets that use the stores run in. One per process.
#ifndef FUZZ_PLACE_H
#define FUZZ_PLACE_H

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>

#include "fuzz/Require.h"

class Place {
public:
    static const Place& Instance() {
        static const Place place;
        return place;
    }
    ~Place() {
        std::error_code ignored;
        std::filesystem::remove_all(m_strDir, ignored);
    }
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;

    static void WriteDatabase(const char* pszName, const uint8_t* pData, size_t nSize) {
        const std::string strFile = std::string("../data/db/") + pszName;
        std::error_code ignored;
        std::filesystem::remove(strFile + "-journal", ignored);
        std::ofstream(strFile, std::ios::binary | std::ios::trunc)
            .write(reinterpret_cast<const char*>(pData), static_cast<std::streamsize>(nSize));
    }

private:
    Place() {
        m_strDir = (std::filesystem::temp_directory_path() / "tevmon-fuzz-XXXXXX").string();
        Require(mkdtemp(m_strDir.data()) != nullptr);
        std::filesystem::create_directories(m_strDir + "/data/db");
        std::filesystem::create_directory(m_strDir + "/run");
        std::filesystem::current_path(m_strDir + "/run");
        std::ofstream("program") << "a program";
        Require(mkfifo("fifo", 0600) == 0);
        (void)setenv("HOSTFRAMEWORK_LOG_LEVEL", "100", 1);
        const int nNull = open("/dev/null", O_WRONLY | O_CLOEXEC);
        (void)dup2(nNull, STDOUT_FILENO);
        (void)close(nNull);
    }

    std::string m_strDir;
};

#endif
