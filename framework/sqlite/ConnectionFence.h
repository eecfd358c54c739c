// What a connection may do. Statements are built as text and hold foreign texts unescaped, so what
// such a text could make of its statement is bounded here. How long SQLite prepares a statement is
// not: a few hundred bytes with parentheses make it prepare for years, and it asks nobody
// meanwhile. Who puts a foreign text that may end its literal into a statement keeps parentheses
// out of it.
//
// Passes: select, read, insert, update, delete, transactions, functions, the creation of a table
// with what SQLite does under it, and "PRAGMA synchronous". Everything else is refused while the
// statement is prepared, with code 23 (some as a connection's very first statement with 17): other
// databases (ATTACH, DETACH, VACUUM), other pragmas, temporary tables, indexes, views, triggers,
// virtual tables, DROP, ALTER, REINDEX, ANALYZE, savepoints and recursive queries.
//
// What passes also ends. Functions whose one call could take hours are refused with code 1: those
// that search, trim, replace, pad and multiply texts. A step ends with code 9 when it takes more
// than a second of its thread's processor time and a hundred instructions of SQLite's machine, or
// more than a second in all and a hundred thousand instructions. A look whose statement holds no
// foreign text may take a minute of processor time: a file from elsewhere can make it endless.
#ifndef FRAMEWORK_SQLITE_CONNECTIONFENCE_H
#define FRAMEWORK_SQLITE_CONNECTIONFENCE_H

struct sqlite3;

// Fences an open connection: the rules above, no busy time-out, primary result codes, no attached
// databases, and SQLite's defensive settings. Returns 0 or SQLite's code. Nothing throws.
int FenceConnection(sqlite3* pDB);

// Called before every preparation and step of a statement, on the thread that makes it. Without
// bLimited it is a look without foreign text.
void BeginFencedStep(bool bLimited);

// Whether the thread's last step took a hundred thousand instructions, however it ended.
bool WasLongStep();

#endif
