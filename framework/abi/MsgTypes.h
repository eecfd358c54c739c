// Message types, endpoint identities and result codes that the host, the module and its peers
// share. Types are signed 64-bit on every call that carries one.
#ifndef FRAMEWORK_ABI_MSGTYPES_H
#define FRAMEWORK_ABI_MSGTYPES_H

#include <cstdint>

constexpr int64_t MSG_TYPE_HIPS_EVENT = 20002;    // in: behaviour events, a JSON text
constexpr int64_t MSG_TYPE_CLOUD_RESULT = 20003;  // in: a cloud verdict, a JSON text
constexpr int64_t MSG_TYPE_CLOUD_QUERY = 20004;   // out: a cloud query, a JSON text
constexpr int64_t MSG_TYPE_SENDHUB = 20300;       // out: a central-session record, binary

// Endpoint identities as 8-4-4-4-12 hexadecimal digits, first the fields of Guid as numbers.
constexpr char MODULE_IDENTITY[] = "ED5D7B4D-CC52-4059-89C2-148A0951BFFF";
constexpr char CLOUD_ENDPOINT[] = "FBE54D8E-D8E6-41F8-BE05-A94CE5469587";
constexpr char CENTRE_ENDPOINT[] = "9946467F-0102-46E8-ACAC-B9EFE3CD68FD";

// Results of sends. A router's own codes pass through unchanged; 0 is success.
constexpr uint32_t ERROR_NO_ROUTER = 0xE0010000U;
constexpr uint32_t ERROR_BAD_ARGUMENT = 0xE0010002U;
constexpr uint32_t ERROR_OUT_OF_MEMORY = 0xE0010003U;
constexpr uint32_t ERROR_BAD_RECORD_TYPE = 0xA0010001U;

#endif
