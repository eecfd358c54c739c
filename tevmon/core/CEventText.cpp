#include "tevmon/core/CEventText.h"

#include "public/pluginhelper/JsonHelpers.h"

namespace {

constexpr size_t USUAL_SIZE = 768;  // a launch without its paths has 600 bytes

}  // namespace

CEventText::CEventText() : m_strItems("[") {
    m_strItems.reserve(USUAL_SIZE);
}

void CEventText::Append(const char* pszKey, const std::string& strValue) {
    m_strItems += m_strItems.size() == 1 ? R"({"key":")" : R"(,{"key":")";
    m_strItems += pszKey;
    m_strItems += R"(","value":)";
    AppendJsonString(m_strItems, strValue);
    m_strItems += '}';
}
