#include "host/program/DigestReader.h"

#include <openssl/evp.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <utility>

#include "framework/digest/DigestPair.h"
#include "framework/digest/FileHash.h"

namespace {

constexpr size_t BLOCK_SIZE = 64 * 1024;  // stays in the processor's cache for the second digest

template <class Object, void (*FREE)(Object*)>
struct Free {
    void operator()(Object* pObject) const { FREE(pObject); }
};

bool IsSame(const timespec& left, const timespec& right) {
    return left.tv_sec == right.tv_sec && left.tv_nsec == right.tv_nsec;
}

// DIGEST_DONE when the descriptor's file still has the content of file's status.
DigestEnd Compare(const HeldFile& file) {
    const FileStatus& held = file.Status();
    FileStatus now;
    if (!file_look::AtDescriptor(file.Descriptor(), now)) {
        return DIGEST_UNREADABLE;
    }
    const bool bSame = now.st_size == held.st_size && IsSame(now.st_mtim, held.st_mtim) &&
                       IsSame(now.st_ctim, held.st_ctim) && file.Version().nFresh == 0;
    return bSame ? DIGEST_DONE : DIGEST_CHANGED;
}

}  // namespace

struct DigestReader::Kit {
    // A library context of its own: the host's OpenSSL configuration does not touch it. The
    // algorithm is fetched once, which costs more than a small file.
    const std::unique_ptr<OSSL_LIB_CTX, Free<OSSL_LIB_CTX, OSSL_LIB_CTX_free>> pLibrary{
        OSSL_LIB_CTX_new()};
    const std::unique_ptr<EVP_MD, Free<EVP_MD, EVP_MD_free>> pSha256{
        pLibrary ? EVP_MD_fetch(pLibrary.get(), "SHA256", nullptr) : nullptr};
    const std::unique_ptr<EVP_MD_CTX, Free<EVP_MD_CTX, EVP_MD_CTX_free>> pContext{EVP_MD_CTX_new()};
    std::optional<utils::CDigestPair> pair;  // of the file in hand
    unsigned char block[BLOCK_SIZE];

    bool Begin() {
        pair.emplace();
        return pSha256 && pContext &&
               EVP_DigestInit_ex2(pContext.get(), pSha256.get(), nullptr) == 1;
    }
    bool Add(size_t nBytes) {
        return pair->Add(block, nBytes) && EVP_DigestUpdate(pContext.get(), block, nBytes) == 1;
    }
    bool End(DigestBytes& bytes) {
        return pair->End(bytes.md5.data(), bytes.sha1.data()) &&
               EVP_DigestFinal_ex(pContext.get(), bytes.sha256.data(), nullptr) == 1;
    }
};

DigestReader::DigestReader(ReadAt fnRead, const std::atomic<bool>& bStop,
                           std::atomic<uint64_t>& nBytes)
    : m_fnRead(fnRead ? std::move(fnRead) : ReadAt(pread)),
      m_bStop(bStop),
      m_nBytes(nBytes),
      m_pKit(std::make_unique<Kit>()) {}

DigestReader::~DigestReader() = default;

DigestEnd DigestReader::Read(const HeldFile& file, DigestBytes& bytes) {
    if (m_bStop) {
        return DIGEST_LEFT_OUT;
    }
    // Reading anything else may act, or wait for ever.
    if (!S_ISREG(file.Status().st_mode)) {
        return DIGEST_UNREADABLE;
    }
    if (file.Status().st_size > utils::HASH_SIZE_LIMIT) {
        return DIGEST_TOO_LARGE;
    }
    const DigestEnd eBefore = Compare(file);
    const DigestEnd eRead = eBefore == DIGEST_UNREADABLE ? eBefore : ReadContent(file, bytes);
    if (eRead != DIGEST_DONE) {
        return eRead;
    }
    return eBefore == DIGEST_DONE && file.IsSure() ? Compare(file) : DIGEST_CHANGED;
}

DigestEnd DigestReader::ReadContent(const HeldFile& file, DigestBytes& bytes) {
    if (!m_pKit->Begin()) {
        return DIGEST_UNREADABLE;
    }
    const DigestEnd eEnd = AddContent(file);
    return eEnd == DIGEST_DONE && !m_pKit->End(bytes) ? DIGEST_UNREADABLE : eEnd;
}

// As getMD5AndSHA1 reads a file: as many bytes as its size promises, and to the end where the size
// reads 0. So both have the same key.
DigestEnd DigestReader::AddContent(const HeldFile& file) {
    const off_t nSize = file.Status().st_size;
    // One byte is asked for beyond the limit: what gives it is too large.
    const off_t nMost = nSize > 0 ? nSize : utils::HASH_SIZELESS_LIMIT + 1;
    for (off_t nOffset = 0; nOffset < nMost;) {
        if (m_bStop) {
            return DIGEST_LEFT_OUT;
        }
        const size_t nWanted = std::min(BLOCK_SIZE, static_cast<size_t>(nMost - nOffset));
        const ssize_t nRead = m_fnRead(file.Descriptor(), m_pKit->block, nWanted, nOffset);
        if (nRead < 0 && errno == EINTR) {
            continue;
        }
        if (nRead == 0) {  // shorter than it was
            return nSize > 0 ? DIGEST_CHANGED : DIGEST_DONE;
        }
        if (nRead < 0 || !m_pKit->Add(static_cast<size_t>(nRead))) {
            return DIGEST_UNREADABLE;
        }
        m_nBytes += static_cast<uint64_t>(nRead);
        nOffset += nRead;
    }
    return nSize > 0 ? DIGEST_DONE : DIGEST_TOO_LARGE;
}
