#include "tests/hostile/Generator.h"

#include <utility>

namespace {

const std::vector<std::string> SCALARS = {"null",
                                          "true",
                                          "-1",
                                          "0",
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
                                          "\"\\ud800\"",
                                          "\"%s%n%d\"",
                                          "\"'; drop table msgchennal; --\"",
                                          "\"\xff\xfe\"",
                                          "\"\xc0\x80\"",
                                          "\"\\n\\r\\t\\u001b[2J\"",
                                          "\"$username/../../etc/shadow\""};

const std::vector<std::string> KEYS = {"cmd",    "pid",       "exe_path", "exe_pid",
                                       "ino",    "disk_type", "fs_type",  "optertion",
                                       "result", "time",      "path",     "x"};

const std::vector<std::string> OPERATIONS = {"create", "remove", "rename", "write", "CREATE", ""};

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

}  // namespace

Generator::Generator(uint32_t nSeed, std::vector<std::string> paths)
    : m_random(nSeed), m_paths(std::move(paths)) {}

std::string Generator::Value(int nDepth) {
    const uint32_t nKind = nDepth > 0 ? Below(8) : 0;
    if (nKind < 6) {
        return OneOf(SCALARS);
    }
    std::string strText = nKind == 6 ? "[" : "{\"k\":";
    strText += Value(nDepth - 1);
    return strText + (nKind == 6 ? "]" : "}");
}

std::string Generator::Path() {
    switch (Below(6)) {
        case 0:
            return "\"" + std::string(4000 + Below(300), 'p') + "\"";
        case 1:
            return Value(2);
        case 2:
            return "\"/etc/cron.d/" + std::to_string(Below(100)) + "\"";
        default:
            return "\"" + OneOf(m_paths) + "\"";
    }
}

std::string Generator::Element(bool& bQueued) {
    bQueued = false;
    if (Below(8) == 0) {
        return Value(3);
    }
    const uint32_t nContext = Below(4);
    const bool bGroup = Below(5) != 0;
    bQueued = bGroup && nContext < 2;
    std::string strText = bGroup ? "{\"grup\":\"cloudquery\"" : "{\"grup\":" + Value(1);
    strText += ",\"context\":";
    strText += nContext == 0 ? "\"cloudad\"" : nContext == 1 ? "\"cloudfd\"" : Value(1);
    strText += ",\"path\":" + Path() + ",\"optertion\":\"" + OneOf(OPERATIONS) + "\"";
    for (uint32_t nMore = Below(4); nMore > 0; --nMore) {
        strText += ",\"" + OneOf(KEYS) + "\":" + (Below(3) == 0 ? Path() : Value(2));
    }
    if (Below(40) == 0) {
        strText += ",\"cmd\":\"" + std::string(Below(200000), 'c') + "\"";
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
    std::string strText = "{\"param\":[";
    for (uint32_t i = 1 + Below(3); i > 0; --i) {
        bool bQueued = false;
        strText += Element(bQueued) + (i > 1 ? "," : "");
        nQueued += bQueued ? 1 : 0;
    }
    return strText + "]}";
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
