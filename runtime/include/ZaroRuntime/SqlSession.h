// A database connection for installing, checking and administering: for what the library has no statement file.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ZaroRuntime/DataSource.h"
#include "ZaroRuntime/Installation.h"

namespace zaroruntime {

// Statements are UTF-8; one that is not is refused like one that the database refuses. A transaction whose COMMIT the
// connection did not survive fails with FailureKind::CommitInDoubt.
class SqlSession {
 public:
  using Row = std::vector<std::optional<std::string>>;  // nothing for NULL

  // Connects, once, waiting `connectTimeOut` seconds at most; throws RuntimeError naming driver, server or file.
  SqlSession(const DataSource& source, const DatabaseSettings& settings, const Installation& installation,
             int connectTimeOut);
  ~SqlSession();
  SqlSession(const SqlSession&) = delete;
  SqlSession& operator=(const SqlSession&) = delete;

  Dialect dialect() const;

  // Every statement from now on fails after `seconds`; 0 is no limit. With SQLite it has no effect: there the data
  // source limits the wait for other writers.
  void setStatementTimeOut(int seconds);
  // Runs one statement and drops its rows. Throws RuntimeError.
  void run(const std::string& statement);
  // Runs some statements, in order, as one transaction: all or nothing. Throws RuntimeError.
  //   beforeCommit   as for `runScripts`
  void runTogether(const std::vector<std::string>& statements, const std::function<void()>& beforeCommit = {});
  // Runs `work`, which uses this session, as one transaction: what it throws rolls back and goes on to the caller, and
  // the session is of no use afterwards. Throws RuntimeError when the commit fails.
  void runAsTransaction(const std::function<void()>& work);
  // First column of the first row; nothing for no row or NULL. Throws RuntimeError.
  std::optional<std::string> value(const std::string& query);
  // Every row. Throws RuntimeError.
  std::vector<Row> rows(const std::string& query);
  // Names of the columns of a query's result, which need not have rows. Throws RuntimeError.
  std::vector<std::string> columns(const std::string& query);
  // Runs every statement of some files (comments and procedure bodies allowed), in order, as one transaction: all or
  // nothing. Throws RuntimeError naming the file and the line of the statement that failed.
  //   beforeCommit   called when everything went through; what it throws rolls back and goes on to the caller
  void runScripts(const std::vector<std::string>& paths, const std::function<void()>& beforeCommit = {});
  // The same for one file.
  void runScript(const std::string& path) { runScripts({path}); }
  // Runs every statement of a file in the transaction that is open. Throws as `runScripts` does.
  void runStatementsOf(const std::string& path);

 private:
  struct Impl;
  std::unique_ptr<Impl> m_impl;
};

// A text as SQL writes it, for either database: in quotes, with those in it doubled. Throws RuntimeError for NUL.
std::string sqlLiteral(const std::string& text);

}  // namespace zaroruntime
