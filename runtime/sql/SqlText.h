// The lexical structure of SQL text: where literals, quoted names and comments lie. PostgreSQL's rules count where the
// databases differ, since its driver takes several statements at a time and SQLite's does not.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace zaroruntime {

enum class SqlPiece {
  Code,           // everything else
  Literal,        // 'text', with '' for a quote
  EscapeLiteral,  // E'text', where a backslash escapes, and each part that continues it after a line's end
  DollarLiteral,  // $tag$text$tag$
  QuotedName,     // "name"
  Comment,        // -- to the end of the line, or /* */ (nesting)
};

struct SqlSegment {
  SqlPiece piece;
  std::size_t begin;
  std::size_t end;  // one past the last byte
  bool closed;      // false where the text ends inside
};

// Segments in order, without gaps. The opening E of an escape literal belongs to the code before it.
std::vector<SqlSegment> scanSql(std::string_view text);

// Why a text is not one statement that may be executed: a second statement behind a semicolon, a comment (drivers count
// parameter marks in them), or a literal or quoted name that does not end. Empty when nothing is wrong.
std::string whyNotOneStatement(std::string_view text);

enum class TransactionVerb {
  None,
  Begin,
  Commit,
  Rollback,
  Savepoint,    // and back to one, and its release: within a transaction only, since SQLite would begin one
  Unsupported,  // chained and prepared transactions, which would outlive their connection's loan
};

// What a statement does to the connection's transaction, told from its words outside literals. A statement that does it
// in a way of its server's (a procedure, a block of statements) is None.
TransactionVerb transactionVerb(std::string_view statement);

// Whether a statement reads and writes rows and nothing else, so that SQLite's session is afterwards as it was; on
// servers a SELECT may call anything. What is not known to do so counts as one that does not.
bool isPlainData(std::string_view statement);

// Whether a statement is a COPY that wants the client to send or take rows.
bool copiesThroughClient(std::string_view statement);

struct ScriptStatement {
  std::string text;
  std::size_t line;  // of its first word, from 1
};

// The statements of a script: split at semicolons, except inside literals and inside the body of CREATE TRIGGER ...
// BEGIN ... END; comments dropped. Throws RuntimeError where a literal, name or comment does not end.
std::vector<ScriptStatement> splitScript(std::string_view script);

}  // namespace zaroruntime
