// What this host knows of the module's inside: words of its messages and logs, its databases, and
// how long a verdict lives. Everything else it knows is the exported table and the router
// interface; the watched places stand in WatchedPaths. A test holds each word against the module.
//
// Threads: any; no state. Errors: none.
#ifndef HOST_BASE_MODULEFACTS_H
#define HOST_BASE_MODULEFACTS_H

#include <cstdint>

namespace module_facts {

// Its databases, in data/db of the state directory, their tables and the columns that are shown.
constexpr char CHANNEL_FILE[] = "tevchennaldb.db";
constexpr char CHANNEL_TABLE[] = "msgchennal";
constexpr const char* CHANNEL_COLUMNS[] = {"id", "createtime", "mid", "detail"};
constexpr char CACHE_FILE[] = "tevcloudcacho.db";
constexpr char CACHE_TABLE[] = "cachotable";
constexpr char CACHE_KEY[] = "vkey";
constexpr const char* CACHE_COLUMNS[] = {CACHE_KEY,    "level", "tmcreate",
                                         "tminternal", "mid",   "detail"};

// What "mid" says: for which analyser a row is.
constexpr int ANALYSER_LAUNCHES = 5;
constexpr int ANALYSER_FILES = 6;

// Between two looks of its at the queue.
constexpr int QUEUE_LOOK_MS = 5000;

// A message: an array of elements, of which one with this group names the kind of events by its
// context.
constexpr char MEMBER_GROUP[] = "grup";
constexpr char MEMBER_CONTEXT[] = "context";
constexpr char MEMBER_PROGRAM[] = "exe_path";
constexpr char GROUP_QUERY[] = "cloudquery";
constexpr char CONTEXT_LAUNCHES[] = "cloudad";
constexpr char CONTEXT_FILES[] = "cloudfd";
constexpr char MEMBER_OPERATION[] = "optertion";  // spelled so
constexpr char OPERATION_CREATE[] = "create";
constexpr char OPERATION_WRITE[] = "write";
constexpr char OPERATION_RENAME[] = "rename";
constexpr char OPERATION_REMOVE[] = "remove";

// A query; its "func" is one of the contexts, or this one for a program that made a file.
constexpr char MEMBER_TYPE[] = "msg_type";
constexpr char QUERY_TYPE[] = "cloudq";
constexpr char ANSWER_TYPE[] = "cloudqr";
constexpr char KEY_EVENT[] = "hi.event_name";  // whose value names the event
constexpr char FUNC_MAKER[] = "cloudfs";

// Events as queries name them.
constexpr char EVENT_LAUNCH[] = "CreateProcess";
constexpr char EVENT_CREATE[] = "FileCreate";
constexpr char EVENT_WRITE[] = "FileModify";
constexpr char EVENT_RENAME[] = "FileRename";
constexpr char EVENT_REMOVE[] = "FileDelete";
constexpr char EVENT_PIPE[] = "ProcessPipe";
constexpr char EVENT_UNIT[] = "AddAutoRuns";

// Formats of its log that say what became of an event, without a line feed at the end.
constexpr char LOG_ANALYSED[] = "handler===> %s";
constexpr char LOG_LAUNCH_CACHED[] = "[CTevPsMonitor] %s in cacho, skip [lanuch]";
constexpr char LOG_LAUNCH_NO_STAT[] = "[CTevPsMonitor] stat faid [%s]";
constexpr char LOG_LAUNCH_NO_HASH[] = "[CTevPsMonitor] calc md5 faid! [%s][lanuch]";
constexpr char LOG_FILE_CACHED[] = "[CTevFsMonitor] %s in cacho, skip [%s]";
constexpr char LOG_FILE_NO_STAT[] = "[CTevFsMonitor] stat faid [%s]";
constexpr char LOG_FILE_NO_HASH[] = "[CTevFsMonitor] calc exepath md5 faid! [%s][%s]";
constexpr char LOG_PIPE_NO_HASH[] = "[CTevFsMonitor] calc md5 faid! [%s]";
constexpr char LOG_UNIT_CACHED[] = "[AddAutoRunsHandler] %s in cacho, skip [%s]";
constexpr char LOG_UNIT_NO_HASH[] = "[AddAutoRunsHandler] calc md5 faid! [%s]";
constexpr char LOG_NOT_SENT[] = "[CTevCloudInterface] : ipc fail.";
// LOG_FILE_NO_STAT from this function is about a changed file, from any other about a pipe.
constexpr char FUNCTION_MODIFY[] = "FileModifyHandler";

// Seconds that a verdict of that level lives in its cache; 0 when it is not kept.
int64_t Lifetime(int nLevel);

}  // namespace module_facts

#endif
