#include "tests/hostile/Generator.h"

#include <utility>

namespace {

const std::vector<std::string> SCALARS = {"null",
                                          "true",
                                          "-1",
                                          "0",
                                          "-0",
                                          "2147483647",
                                          "-2147483649",
                                          "4294967366",
                                          "9223372036854775807",
                                          "70",
                                          "70.0",
                                          "2147483648",
                                          "-9223372036854775809",
                                          "18446744073709551616",
                                          "1e308",
                                          "1e-400",
                                          "0.5",
                                          "\"\"",
                                          "\"x\"",
                                          "\"\\u0000\"",
                                          "\"a\\u0000b\"",
                                          std::string("\"a\0b\"", 5),
                                          "\"\xed\xa0\x80\"",
                                          "\"\x7f\x01\"",
                                          "\"%s%n%d\"",
                                          "\"'; drop table msgchennal; --\"",
                                          "\"\xff\xfe\"",
                                          "\"\xc0\x80\"",
                                          "\"\\n\\r\\t\\u001b[2J\"",
                                          "\"$username/../../etc/shadow\""};

// No parser takes these.
const std::vector<std::string> BAD_SCALARS = {
    "1e99999", "\"\\ud800\"", "\"\\udc00\\ud800\"", "\"\\x\"", "nul", "-", "\"open"};

const std::vector<std::string> KEYS = {"cmd",    "pid",       "exe_path", "exe_pid",
                                       "ino",    "disk_type", "fs_type",  "optertion",
                                       "result", "time",      "path",     "x"};

const std::vector<std::string> OPERATIONS = {"create", "remove", "rename", "write", "CREATE", ""};

// Names of members that nobody asks for.
const std::vector<std::string> NAMES = {"\"\"",
                                        "\"%n%s\"",
                                        "\"grup\\u0000\"",
                                        std::string("\"context\0\"", 10),
                                        "\"'; drop table cachotable; --\"",
                                        "\"\xff\"",
                                        "\"Grup\""};

const std::vector<std::string> LEVELS = {
    "70", "10", " 20",        "+30", "70x", "0x46", "-70", "",
    "x",  "60", "4294967366", "040", "7 0", "50.9", "1e1", "99999999999999999999"};

const std::vector<std::string> BROKEN = {
    "", "{", "[", "{\"param\":", "nonsense", "\xff", "{}{}", "{\"param\":[}", "\"text\"", "7"};

const std::vector<std::string> SQL = {"'",
                                      "''",
                                      "\"",
                                      ";",
                                      "--",
                                      "/*",
                                      "*/",
                                      "(",
                                      ")",
                                      ",",
                                      " or 1=1 ",
                                      " or '1'='1",
                                      "known",
                                      "other",
                                      " where vkey = 'known' ",
                                      "x",
                                      "\\",
                                      "%s",
                                      " union select * from cachotable ",
                                      "',1,1,1,'',1)",
                                      " on conflict(vkey) do update set level = 10 ",
                                      " returning * ",
                                      "; attach database 'evil.db' as e",
                                      "; drop table cachotable",
                                      "'||(select 1)||'",
                                      "\xff",
                                      "; vacuum into 'evil.db'",
                                      "; pragma user_version = 7",
                                      ",level = 10 ",
                                      "\n",
                                      "%",
                                      " -- "};

// A key that is put together of these is often a whole statement of the kind that is expected.
const std::vector<std::string> OPENINGS = {"x'", "known'", "other'", "'", "x'''", "it''s'"};

const std::vector<std::string> MIDDLES = {" or 1=1",
                                          " or vkey = 'known'",
                                          " or vkey <> 'x'",
                                          " or level > 1",
                                          " where vkey = 'known'",
                                          ",level = 10",
                                          ",level = 10 where vkey = 'other'",
                                          ",1,1,1,'',1)",
                                          ",70,1,1,'',1),('more',1,1,1,'',1)",
                                          " on conflict(vkey) do update set level = 10",
                                          " on conflict(vkey) do update set vkey = 'x'",
                                          " returning *",
                                          "||(select max(vkey) from cachotable)"};

const std::vector<std::string> CLOSINGS = {" --",         "/*", "",   " or 'a'='a",
                                           " and 'a'='a", ";",  "||'"};

// As it stands in a JSON text. Bytes that are no UTF-8 stay as they are.
std::string Escaped(const std::string& strText) {
    constexpr char DIGITS[] = "0123456789abcdef";
    std::string strEscaped;
    for (const char c : strText) {
        const auto nByte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            strEscaped += {'\\', c};
        } else if (nByte < 0x20) {
            strEscaped += {'\\', 'u', '0', '0', DIGITS[nByte >> 4], DIGITS[nByte & 15]};
        } else {
            strEscaped += c;
        }
    }
    return strEscaped;
}

}  // namespace

Generator::Generator(uint32_t nSeed, std::vector<std::string> paths)
    : m_random(nSeed), m_paths(std::move(paths)) {}

std::string Generator::Value(int nDepth) {
    const uint32_t nKind = nDepth > 0 ? Below(8) : 0;
    if (nKind < 6) {
        return OneOf(Below(100) == 0 ? BAD_SCALARS : SCALARS);
    }
    std::string strText = nKind == 6 ? "[" : "{\"k\":";
    strText += Value(nDepth - 1);
    return strText + (nKind == 6 ? "]" : "}");
}

std::string Generator::Path() {
    if (Below(4) == 0) {
        return "\"" + m_paths.back() + "\"";
    }
    switch (Below(9)) {
        case 0:
            return "\"" + std::string(4000 + Below(300), 'p') + "\"";
        case 1:
            return Value(2);
        case 2:
            return "\"/etc/cron.d/" + std::to_string(Below(100)) + "\"";
        case 3:
            return "\"" + OneOf(m_paths) + "\\u0000/../x\"";
        case 4:
            return "\"" + OneOf(m_paths) + "/\xff%s%n'/../x\"";
        default:
            return "\"" + OneOf(m_paths) + "\"";
    }
}

// Closed again, and about as deep as the library goes.
std::string Generator::Deep() {
    const size_t nDepth = 950 + Below(100);
    return std::string(nDepth, '[') + OneOf(SCALARS) + std::string(nDepth, ']');
}

// The group and the context, right or not, and now and then once more.
std::string Generator::Head(bool& bQueued) {
    bool bGroup = true;
    bool bContext = true;
    std::string strText = "{\"x\":0";
    for (uint32_t nMore = 1 + (Below(12) == 0 ? 1 : 0); nMore > 0; --nMore) {
        bGroup = Below(5) != 0;
        strText += ",\"grup\":" + (bGroup ? "\"cloudquery\"" : Value(2));
    }
    for (uint32_t nMore = 1 + (Below(12) == 0 ? 1 : 0); nMore > 0; --nMore) {
        const uint32_t nContext = Below(4);
        bContext = nContext < 2;
        strText += ",\"context\":";
        strText += nContext == 0 ? "\"cloudad\"" : nContext == 1 ? "\"cloudfd\"" : Value(2);
    }
    bQueued = bGroup && bContext;
    return strText;
}

std::string Generator::Element(bool& bQueued) {
    bQueued = false;
    if (Below(8) == 0) {
        return Value(3);
    }
    std::string strText = Head(bQueued);
    strText += ",\"path\":" + Path() + ",\"optertion\":";
    strText += Below(6) == 0 ? Value(2) : "\"" + OneOf(OPERATIONS) + "\"";
    for (uint32_t nMore = Below(6); nMore > 0; --nMore) {
        strText += ",\"" + OneOf(KEYS) + "\":" + (Below(3) == 0 ? Path() : Value(2));
    }
    if (Below(10) == 0) {
        strText += "," + OneOf(NAMES) + ":" + Value(1);
    }
    if (Below(40) == 0) {
        strText += ",\"" + OneOf(KEYS) + "\":\"" + std::string(Below(200000), 'c') + "\"";
    }
    if (Below(40) == 0) {
        strText += ",\"" + OneOf(KEYS) + "\":" + Deep();
    }
    return strText + "}";
}

std::string Generator::Message(long& nQueued) {
    nQueued = 0;
    if (Below(20) == 0) {
        return OneOf(BROKEN);
    }
    if (Below(20) == 0) {
        return std::string(1 + Below(3000), '[');
    }
    if (Below(20) == 0) {
        return "{\"param\":" + Value(3) + "}";
    }
    std::string strText = "{";
    if (Below(20) == 0) {
        strText += "\"param\":" + Value(2) + ",";
    }
    if (Below(20) == 0) {
        strText += OneOf(NAMES) + ":" + Value(2) + ",/* \"*/";
    }
    strText += "\"param\":[";
    for (uint32_t nMore = Below(200) == 0 ? Below(1000) : 0; nMore > 0; --nMore) {
        strText += Value(1) + ",";
    }
    for (uint32_t i = 1 + Below(3); i > 0; --i) {
        bool bQueued = false;
        strText += Element(bQueued) + (i > 1 ? "," : "");
        nQueued += bQueued ? 1 : 0;
    }
    return strText + "]}";
}

// A member with the right value, another, or none at all.
std::string Generator::Member(const std::string& strName, const std::string& strRight) {
    switch (Below(16)) {
        case 0:
            return "";
        case 1:
            return ",\"" + strName + "\":" + (Below(10) == 0 ? Deep() : Value(2));
        case 2:
            return ",\"" + strName + "\":" + Value(2) + ",\"" + strName + "\":" + strRight;
        default:
            return ",\"" + strName + "\":" + strRight;
    }
}

std::string Generator::Verdict() {
    if (Below(30) == 0) {
        return OneOf(BROKEN);
    }
    std::string strKey = Below(2) == 0 ? Key() : "key" + std::to_string(Below(100000));
    if (Below(50) == 0) {
        strKey += std::string(Below(100000), 'k');
    }
    std::string strLevel = OneOf(LEVELS);
    if (Below(2) == 0) {
        strLevel = "70";
    }
    const std::string strParam =
        "{\"x\":0" + Member("context", "\"" + Escaped(strKey) + "\"") +
        Member("result", Below(8) == 0 ? Value(1) : "\"" + strLevel + "\"") +
        Member("func", Below(2) == 0 ? "\"cloudad\"" : "\"cloudfd\"") +
        (Below(10) == 0 ? "," + OneOf(NAMES) + ":" + Value(2) : "") + "}";
    return "{\"x\":0" + Member("msg_type", "\"cloudqr\"") + Member("param", strParam) + "}";
}

int64_t Generator::Type() {
    constexpr int64_t OTHERS[] = {
        0, -1, 20001, 20004, 20300, 20002 + (int64_t{1} << 32), INT64_MAX, INT64_MIN};
    const uint32_t nKind = Below(16);
    return nKind == 0 ? OTHERS[Below(8)] : nKind < 3 ? 20003 : 20002;
}

std::string Generator::Key() {
    std::string strKey;
    if (Below(3) != 0) {
        strKey = OneOf(OPENINGS);
        for (uint32_t i = 1 + Below(2); i > 0; --i) {
            strKey += OneOf(MIDDLES);
        }
        return strKey + (Below(8) == 0 ? std::string("\0tail", 5) : OneOf(CLOSINGS));
    }
    for (uint32_t i = 1 + Below(6); i > 0; --i) {
        strKey += OneOf(SQL);
    }
    if (Below(50) == 0) {
        strKey += std::string("\0' or 1=1 --", 12);
    }
    return strKey;
}
