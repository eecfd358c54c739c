// What a connection may do. Statements are built as text and hold foreign texts unescaped, so what
// such a text could make of its statement is bounded here.
//
// Passes: select, read, insert, update, delete, transactions, functions, the creation of a table
// with what SQLite does under it, and "PRAGMA synchronous". Everything else is refused while the
// statement is prepared, with code 23 (some as a connection's very first statement with 17): other
// databases (ATTACH, DETACH, VACUUM), other pragmas, temporary tables, indexes, views, triggers,
// virtual tables, DROP, ALTER, REINDEX, ANALYZE, savepoints and recursive queries.
#ifndef FRAMEWORK_SQLITE_CONNECTIONFENCE_H
#define FRAMEWORK_SQLITE_CONNECTIONFENCE_H

struct sqlite3;

// Fences an open connection: the rules above, no busy time-out, primary result codes, no attached
// databases, and SQLite's defensive settings. Returns 0 or SQLite's code. Nothing throws.
int FenceConnection(sqlite3* pDB);

#endif
