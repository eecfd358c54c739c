// What a statement's text may be made of, beside its literals, so that SQLite prepares it in no
// time. A foreign text that ends the literal in which it stands becomes SQL: a few hundred bytes of
// common table expressions that name each other make SQLite prepare for years, and no handler of
// SQLite's is asked meanwhile.
//
// Threads: any; no state. Nothing throws.
#ifndef FRAMEWORK_SQLITE_STATEMENTBOUNDS_H
#define FRAMEWORK_SQLITE_STATEMENTBOUNDS_H

#include <cstddef>

// A shorter statement is within the bounds whatever it holds.
constexpr size_t SHORT_STATEMENT = 160;

// False for a statement that has, outside of literals, quoted names and comments, more than a
// thousand bytes, more than three of the words "select" and "values", or more than four of the
// operator that joins texts.
bool IsWithinBounds(const char* pszSQL);

#endif
