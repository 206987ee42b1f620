// The database of the installation.
//
// A process has one pool of connections. A unit of work is a StoreConnection: the library's operations take its
// `library()`, and SQL of the program's own goes over the same connection, so that both see the same transaction.
// Changes go through `inTransaction` (Transaction.h).
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "RdbmsInterface.h"
#include "ZaroRuntime/DataSource.h"
#include "ZaroRuntime/LastFailure.h"
#include "ZaroRuntime/RuntimeError.h"
#include "ZaroRuntime/SqlSession.h"

// The database did not do its work, and the text says why.
class DatabaseError : public zaroruntime::RuntimeError {
 public:
  using RuntimeError::RuntimeError;
  // `what`, a colon, and the platform's last failure.
  static DatabaseError because(const std::string& what);
};

// Initialises the library for the installation that ZARO_HOME names, with a pool that is closed when the program ends,
// and connects. Throws RuntimeError naming the file, section or key that is wrong, or saying why the database does not
// answer.
std::unique_ptr<ZARO::RdbmsInterface> connectToDatabase();

// The same, once: afterwards what the library last failed in is for `databaseFailure` to tell.
void requireLibrary();

// Throws DatabaseError unless the schema of a session's database is of the version that this program works on. The
// above have asked.
void requireOwnSchema(zaroruntime::SqlSession& session, const std::string& database);

// Why the library could not do its work, for a status code that says it failed in the database.
std::string databaseFailure();

// A connection out of the pool. Everything throws DatabaseError.
class StoreConnection {
 public:
  using Row = std::vector<std::optional<std::string>>;  // nothing for NULL

  // Makes the library ready; throws RuntimeError when that fails.
  StoreConnection() = default;
  StoreConnection(const StoreConnection&) = delete;
  StoreConnection& operator=(const StoreConnection&) = delete;

  ZARO::RdbmsInterface& library() { return m_library; }
  zaroruntime::Dialect dialect() const;

  // Throws unless the schema still is of the version that this program works on.
  void requireOwnSchema();

  // Runs a statement; its rows, if it has any, are dropped.
  void run(const std::string& statement);
  // Every row, with the columns in the order given. They are found by the names that they have in the result.
  std::vector<Row> rows(const std::string& query, const std::vector<const char*>& columns);
  // That column of the first row; nothing for no row or NULL.
  std::optional<std::string> value(const std::string& query, const char* column);

  // Locks the table against other writers until the transaction ends. SQLite has no need of it, since its transactions
  // exclude each other.
  void lockTable(const char* table);
  // The suffix that locks the rows a query finds; empty on SQLite.
  const char* forUpdate() const;
  // The same, but only against removal: transactions that refer to the rows take such a lock too, any number at once.
  const char* forReference() const;

 private:
  struct Ready {
    Ready();
  };

  Ready m_ready;  // before the first object of the library
  ZARO::RdbmsInterface m_library;
};

// Has the library answer a question. It answers "no" and "nothing" also when it could not find out, so a failure of the
// platform meanwhile is a DatabaseError: `failure`, such as "cannot list the objects", and the reason.
template <typename Question>
auto answerOf(const std::string& failure, Question question) -> decltype(question()) {
  const unsigned long before = zaroruntime::failureCount();
  auto answer = question();
  if (zaroruntime::failureCount() != before) {
    throw DatabaseError::because(failure);
  }
  return answer;
}
