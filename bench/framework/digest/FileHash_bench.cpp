// Both digests of a file against MD5 alone. The reference opens and reads the file by the very same
// steps (examined without opening, opened again through /proc, 64 KiB reads, a block and a context
// made for each call, the algorithm fetched once), so that the second digest is the difference.
#include "framework/digest/FileHash.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <string>

#include "bench/support/Ratios.h"
#include "framework/digest/DigestPair.h"
#include "tests/support/TestDir.h"

namespace {

constexpr size_t BLOCK_SIZE = 64 * 1024;

// Chosen before a row can force another.
const utils::DigestPath FASTEST = utils::DigestPathInUse();

const TestDir& Directory() {
    static const TestDir s_dir(false);
    return s_dir;
}

std::string FileOf(size_t nBytes) {
    std::string strContent(nBytes, '\0');
    uint32_t nState = 1;
    for (char& c : strContent) {
        nState = nState * 1664525 + 1013904223;
        c = static_cast<char>(nState >> 24);
    }
    return Directory().WriteFile("file" + std::to_string(nBytes), strContent);
}

const EVP_MD* Md5() {
    static const EVP_MD* const s_pMd5 = EVP_MD_fetch(OSSL_LIB_CTX_new(), "MD5", nullptr);
    return s_pMd5;
}

struct Md5Kit {
    Md5Kit() : pContext(EVP_MD_CTX_new()) { EVP_DigestInit_ex2(pContext, Md5(), nullptr); }
    ~Md5Kit() { EVP_MD_CTX_free(pContext); }
    Md5Kit(const Md5Kit&) = delete;
    Md5Kit& operator=(const Md5Kit&) = delete;

    EVP_MD_CTX* pContext;
    unsigned char block[BLOCK_SIZE];
};

std::string HexText(const unsigned char* pBytes, size_t nBytes) {
    constexpr char DIGITS[] = "0123456789abcdef";
    std::string strText;
    strText.reserve(2 * nBytes);
    for (size_t i = 0; i < nBytes; ++i) {
        strText += DIGITS[pBytes[i] >> 4];
        strText += DIGITS[pBytes[i] & 0x0f];
    }
    return strText;
}

std::string Md5Of(const std::string& strPath) {
    const int nPathFd = open(strPath.c_str(), O_PATH | O_CLOEXEC);
    struct stat status = {};
    if (nPathFd < 0 || fstat(nPathFd, &status) != 0) {
        return "";
    }
    const std::string strLink = "/proc/self/fd/" + std::to_string(nPathFd);
    const int nFd = open(strLink.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY | O_NOATIME);
    const std::unique_ptr<Md5Kit> pKit(new Md5Kit);
    for (int64_t nLeft = status.st_size; nLeft > 0;) {
        const size_t nWanted = std::min<size_t>(BLOCK_SIZE, static_cast<size_t>(nLeft));
        const ssize_t nRead = read(nFd, pKit->block, nWanted);
        if (nRead <= 0) {
            break;
        }
        EVP_DigestUpdate(pKit->pContext, pKit->block, static_cast<size_t>(nRead));
        nLeft -= nRead;
    }
    unsigned char digest[16];
    EVP_DigestFinal_ex(pKit->pContext, digest, nullptr);
    close(nFd);
    close(nPathFd);
    return HexText(digest, sizeof(digest));
}

bool CompareSize(utils::DigestPath ePath, const std::string& strName, size_t nBytes,
                 double dTarget) {
    if (!utils::DigestPathRuns(ePath)) {
        return true;  // no row: this processor lacks what the path needs
    }
    const std::string strPath = utils::DigestPathName(ePath);
    return Compare({strPath + ", both digests : MD5 alone, " + strName, dTarget,
                    [=](benchmark::State& state) {
                        utils::SetDigestPath(ePath);
                        const std::string strFile = FileOf(nBytes);
                        std::string strMd5;
                        std::string strSha1;
                        for (auto _ : state) {
                            benchmark::DoNotOptimize(
                                utils::getMD5AndSHA1(strFile, strMd5, strSha1));
                        }
                        if (strMd5 != Md5Of(strFile)) {
                            state.SkipWithError("the two sides disagree");
                        }
                    },
                    [nBytes](benchmark::State& state) {
                        const std::string strFile = FileOf(nBytes);
                        for (auto _ : state) {
                            benchmark::DoNotOptimize(Md5Of(strFile));
                        }
                    }});
}

bool ComparePath(utils::DigestPath ePath, double dSmallTarget, double dTarget) {
    return CompareSize(ePath, "1 KiB", 1024, dSmallTarget) &&
           CompareSize(ePath, "16 KiB", 16 * 1024, dTarget) &&
           CompareSize(ePath, "64 KiB", 64 * 1024, dTarget) &&
           CompareSize(ePath, "1 MiB", 1024 * 1024, dTarget) &&
           CompareSize(ePath, "16 MiB", 16 * 1024 * 1024, dTarget) &&
           CompareSize(ePath, "100 MiB", 100 * 1024 * 1024, dTarget);
}

constexpr size_t KIB = 1024;
constexpr size_t MIB = 1024 * KIB;
constexpr size_t GIB = 1024 * MIB;

// A file of holes: it takes no memory where the files lie in memory.
std::string SparseOf(size_t nBytes) {
    const std::string strFile = Directory().WriteFile("sparse" + std::to_string(nBytes), "");
    return truncate(strFile.c_str(), static_cast<off_t>(nBytes)) == 0 ? strFile : "";
}

Comparison::Side Hash(size_t nBytes, size_t nFiles) {
    return [=](benchmark::State& state) {
        utils::SetDigestPath(FASTEST);
        const std::string strFile = SparseOf(nBytes);
        std::string strMd5;
        std::string strSha1;
        for (auto _ : state) {
            for (size_t i = 0; i < nFiles; ++i) {
                if (!utils::getMD5AndSHA1(strFile, strMd5, strSha1)) {
                    state.SkipWithError("not hashed");
                }
            }
        }
    };
}

// The most memory that the process had at any time of one call.
Comparison::Side Peak(size_t nBytes) {
    return [=](benchmark::State& state) {
        utils::SetDigestPath(FASTEST);
        const std::string strFile = SparseOf(nBytes);
        std::string strMd5;
        std::string strSha1;
        for (auto _ : state) {
            std::ofstream("/proc/self/clear_refs") << "5";  // the peak begins anew
            benchmark::DoNotOptimize(utils::getMD5AndSHA1(strFile, strMd5, strSha1));
            std::ifstream status("/proc/self/status");
            std::string strWord;
            while (status >> strWord && strWord != "VmHWM:") {
            }
            double dKib = 0;
            status >> dKib;
            state.counters["bytes"] = dKib * KIB;
        }
    };
}

bool Growth(const std::string& strName, size_t nBytes, double dTarget) {
    return Compare({"both digests, per MiB: files of " + strName + " : 1 MiB", dTarget,
                    Hash(nBytes, std::max(MIB / nBytes, size_t{1})),
                    Hash(MIB, std::max(nBytes / MIB, size_t{1})),
                    static_cast<int64_t>(std::max(nBytes / MIB, size_t{1})), nBytes < GIB ? 0 : 5});
}

const bool GROWTH =
    Growth("1 KiB", KIB, 0) && Growth("64 KiB", 64 * KIB, 0) && Growth("64 MiB", 64 * MIB, 1.05) &&
    Growth("1 GiB", GIB, 1.05) &&
    Compare({"memory of both digests, 1 GiB : 1 KiB", 1.05, Peak(GIB), Peak(KIB), 1, 3});

const bool REGISTERED = ComparePath(utils::DIGEST_PATH_SHA, 1.25, 1.30) &&
                        ComparePath(utils::DIGEST_PATH_AVX2, 1.25, 1.30) &&
                        ComparePath(utils::DIGEST_PATH_PORTABLE, 1.25, 1.55) &&
                        ComparePath(utils::DIGEST_PATH_LIBRARY, 0, 0);

}  // namespace
