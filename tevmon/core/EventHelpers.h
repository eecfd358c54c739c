// What the analysers share: script detection, event time texts, file status, behaviour items and
// the program key.
//
// Threads: any; no state. Errors: failures give 0, false or an empty text.
#ifndef TEVMON_CORE_EVENTHELPERS_H
#define TEVMON_CORE_EVENTHELPERS_H

#include <json/value.h>
#include <sys/stat.h>

#include <cstdint>
#include <string>

// Values of "hi.type" of a process creation.
enum ScriptType : int32_t { ScriptNone = 0, ScriptShell = 1, ScriptPython = 2, ScriptPhp = 3 };

// The kind of script that a launch of strPath with command line strCmd runs: by the program's exact
// file name (bash, dash; python, python2, python3; php) and a script named in the command line.
int32_t DetectScriptType(const std::string& strPath, const std::string& strCmd);

// True when some word of strCmd, split at blanks, names an existing regular file (seen from the
// module's own directory) whose suffix is strSuffix.
bool CommandRunsScript(const std::string& strCmd, const std::string& strSuffix);

// Local "YYYY-MM-DD hh:mm:ss.N", N the nanoseconds without padding; "" when the time has no date.
std::string FormatEventTime(int64_t tmSeconds, int64_t nNanoseconds);

// Removes blanks, line feeds, carriage returns and tabs from both ends, in place.
std::string& Trim(std::string& strText);

// stat, following links; false also for a path with a NUL byte, which names no file.
bool StatFile(const std::string& strPath, struct stat& status);

// The whole mode word, type bits included, in octal without prefix.
std::string FormatMode(mode_t nMode);

// The verdict cache's key of the program at strPath: its SHA-1 text, then its MD5 text; "" when it
// cannot be hashed.
std::string ProgramKey(const std::string& strPath);

// Appends {"key": pszKey, "value": jsonValue} to the event. pszKey is a literal: the event points
// to it. Throws what the JSON library throws.
void AppendItem(Json::Value& jsonEvent, const char* pszKey, Json::Value jsonValue);

#endif
