// Text measured in the cells of a terminal.
//
// Threads: any; no state. Errors: none but std::bad_alloc. Texts are valid UTF-8 without control
// characters, as text::ForTerminal makes them; other bytes count as one cell each.
#ifndef HOST_REPORT_SCREEN_DISPLAYWIDTH_H
#define HOST_REPORT_SCREEN_DISPLAYWIDTH_H

#include <cstddef>
#include <string>

namespace display_width {

// Cells that strText takes; wide characters take two, combining ones none.
size_t Width(const std::string& strText);

// strText in exactly nWidth cells: blanks follow it, or its end is cut off and marked.
std::string Fit(const std::string& strText, size_t nWidth, bool bUnicode);

// Likewise, but what is too much is taken from the middle: of a path the beginning and the name
// cover most.
std::string FitMiddle(const std::string& strText, size_t nWidth, bool bUnicode);

// Likewise, with the blanks before it.
std::string FitRight(const std::string& strText, size_t nWidth, bool bUnicode);

}  // namespace display_width

#endif
