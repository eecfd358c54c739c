// Base64 many bytes at a time, for processors with AVX2; Base64Util does the rest of a text, and
// all of it elsewhere.
//
// Threads: any; no state. Errors: none.
#ifndef FRAMEWORK_BASE_BASE64BLOCKS_H
#define FRAMEWORK_BASE_BASE64BLOCKS_H

#include <cstddef>

#include "framework/abi/Export.h"

namespace utils {

// True when this processor runs the two below.
HOSTFRAMEWORK_API bool HasBase64Blocks();

// Encodes from the start of the nBytes at pData as many as go into whole blocks, into pText, which
// has room for the whole text. Returns how many were encoded, a multiple of 3 near nBytes.
HOSTFRAMEWORK_API size_t EncodeBase64Blocks(const unsigned char* pData, size_t nBytes, char* pText);

// Decodes from the start of the nChars at pText whole blocks up to the first that holds a foreign
// character or padding, into pData, which has room for nChars / 4 * 3 bytes. Returns how many
// characters were decoded, a multiple of 4; pData holds anything behind their bytes.
HOSTFRAMEWORK_API size_t DecodeBase64Blocks(const char* pText, size_t nChars, unsigned char* pData);

}  // namespace utils

#endif
