// Foreign text made safe for a terminal.
//
// Threads: any; no state. Errors: none but std::bad_alloc.
#ifndef HOST_BASE_ESCAPEDTEXT_H
#define HOST_BASE_ESCAPEDTEXT_H

#include <cstddef>
#include <string>

namespace text {

// strText with control characters, DEL and bytes that are not UTF-8 written as \xNN and a
// backslash doubled, so that a file name can neither steer the terminal nor forge a line. C1
// controls and the characters that turn the writing direction are escaped as well.
std::string ForTerminal(const std::string& strText);

// Length of the UTF-8 sequence that begins at nPos (1 to 4), 0 when none does.
size_t Utf8Length(const std::string& strText, size_t nPos);

}  // namespace text

#endif
