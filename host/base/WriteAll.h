// Writing a text whole, in as many pieces as the descriptor takes it.
//
// Threads: any. Errors: returned.
#ifndef HOST_BASE_WRITEALL_H
#define HOST_BASE_WRITEALL_H

#include <chrono>
#include <optional>
#include <string_view>

// 0, or the error that stopped it. A descriptor that does not block and has no room is waited for:
// until it has, or for so long in all, and then the result is EAGAIN.
int WriteAll(int nFd, std::string_view strText,
             std::optional<std::chrono::milliseconds> patience = std::nullopt);

#endif
