// Prints both digests of every file named, one line each: what bench/digest_tools.py measures.
#include <cstdio>
#include <cstring>
#include <string>

#include "framework/digest/DigestPair.h"
#include "framework/digest/FileHash.h"

namespace {

constexpr char USAGE[] =
    "Usage: hash_files [--path NAME] FILE...\n\n"
    "Prints MD5, SHA-1 and name of every FILE, from one reading of it. --path: library, portable,\n"
    "avx2 or sha, instead of the one chosen for this processor.\n";

// False for a name that no path has, or whose path does not run here.
bool TakePath(const char* pszName) {
    for (int i = 0; i < utils::DIGEST_PATHS; ++i) {
        const auto ePath = static_cast<utils::DigestPath>(i);
        if (std::strcmp(utils::DigestPathName(ePath), pszName) == 0 &&
            utils::DigestPathRuns(ePath)) {
            utils::SetDigestPath(ePath);
            return true;
        }
    }
    return false;
}

}  // namespace

int main(int nArgs, char** ppszArgs) {
    int nFirst = 1;
    if (nArgs > 1 && std::strcmp(ppszArgs[1], "--help") == 0) {
        std::fputs(USAGE, stdout);
        return 0;
    }
    if (nArgs > 2 && std::strcmp(ppszArgs[1], "--path") == 0) {
        if (!TakePath(ppszArgs[2])) {
            std::fprintf(stderr, "hash_files: no path '%s' here\n", ppszArgs[2]);
            return 2;
        }
        nFirst = 3;
    }
    if (nFirst >= nArgs) {
        std::fputs(USAGE, stderr);
        return 2;
    }
    int nExitCode = 0;
    for (int i = nFirst; i < nArgs; ++i) {
        std::string strMd5, strSha1;
        if (utils::getMD5AndSHA1(ppszArgs[i], strMd5, strSha1)) {
            std::printf("%s %s  %s\n", strMd5.c_str(), strSha1.c_str(), ppszArgs[i]);
        } else {
            std::fprintf(stderr, "hash_files: cannot read %s\n", ppszArgs[i]);
            nExitCode = 1;
        }
    }
    return nExitCode;
}
