// The fence around a connection's files: the database, and what SQLite keeps beside it.
#ifndef FRAMEWORK_SQLITE_FILEFENCE_H
#define FRAMEWORK_SQLITE_FILEFENCE_H

#include <memory>

struct sqlite3;
struct FileFence;

// Opens pszFile as sqlite3_open_v2 does, so that whatever lies beside the file cannot lead SQLite
// away from it. A database, a journal to roll back or a write-ahead log that is no regular file is
// refused as one that cannot be opened: SQLite would wait for a FIFO's writer. Other files do not
// exist for the connection: a journal left there may name any file as the one that ties several
// databases together, and rolling it back deletes that one.
//
// The fence has to live as long as the connection and its statements. Answers SQLite's code; pDB is
// as sqlite3_open_v2 leaves it. std::bad_alloc may be thrown, then nothing is open.
int OpenFenced(const char* pszFile, int nFlags, sqlite3*& pDB, std::shared_ptr<FileFence>& pFence);

#endif
