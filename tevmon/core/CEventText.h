// An event as the text that a query carries: an array of behaviour items, to the byte what the JSON
// library writes for {"key": ..., "value": ...} items in one line. Launches are written this way;
// the seldom file operations are trees (see AppendItem in EventHelpers.h).
//
// Threads: none of its own. Errors: std::bad_alloc.
#ifndef TEVMON_CORE_CEVENTTEXT_H
#define TEVMON_CORE_CEVENTTEXT_H

#include <string>

class CEventText {
public:
    CEventText();

    // Appends one item. pszKey stands in the text as it is: letters, points and underscores.
    void Append(const char* pszKey, const std::string& strValue);

    // The array with the items so far, "[]" without any.
    std::string Text() const { return m_strItems + "]"; }

private:
    std::string m_strItems;  // the array without its end
};

#endif
