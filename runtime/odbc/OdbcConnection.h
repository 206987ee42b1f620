// One ODBC connection with one statement: the only place that calls the driver manager.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "ZaroRuntime/DataSource.h"
#include "odbc/OdbcError.h"
#include "odbc/OdbcHandle.h"
#include "odbc/SqliteFile.h"

namespace zaroruntime {

// Failures are thrown as OdbcError. An object belongs to one thread at a time.
class OdbcConnection {
 public:
  OdbcConnection();
  ~OdbcConnection();
  OdbcConnection(const OdbcConnection&) = delete;
  OdbcConnection& operator=(const OdbcConnection&) = delete;

  // Connects anew, closing what was open. `timeOut` in seconds; 0 waits as long as the driver does.
  void connect(const std::string& connectionString, Dialect dialect, int timeOut);
  void disconnect() noexcept;
  // From now on statements of this connection fail after `seconds`; 0 waits as long as the driver does.
  void setStatementTimeOut(int seconds);
  bool isConnected() const { return m_connected; }

  // Whether a session can be reset on this database; otherwise a new connection has to do.
  bool canResetSession() const { return m_dialect == Dialect::PostgreSQL; }
  // Finds out whether the connection lives, and where a session can be reset, makes it what it was after connecting, in
  // the same round trip. No transaction may be open.
  //   settings   a statement, or several, that are executed as part of it; may be empty
  void resetSession(const std::string& settings);
  // Whether the transaction that was open is still open after a statement of it has failed, and can go on; false where
  // there is no way to find out. The statement's diagnostics stay.
  bool isTransactionOpen() noexcept;

  // Runs a statement, which must be UTF-8; rows are then fetched.
  void execute(const std::string& statement);
  // Runs a BEGIN or a COMMIT and looks for no result: what this throws comes from the statement itself.
  void control(const std::string& statement);
  // Closes the result, if any.
  void closeResult() noexcept;
  // True when there is a row, now current. False at the end, and for results without columns.
  bool fetch();
  // True when there is another result, now open.
  bool nextResult();
  bool hasColumns() const { return !m_columns.empty(); }
  // Names of the open result's columns.
  const std::vector<std::string>& columns() const { return m_columns; }

  // Index of a column by name, regardless of case; nothing if there is none.
  std::optional<std::size_t> findColumn(const char* name) const;
  // Value of the current row; nothing for NULL.
  const std::optional<std::string>& value(std::size_t column) const { return m_row[column]; }

  SQLHSTMT statement() const { return m_statement.get(); }

 private:
  // The file's path.
  std::string _databaseFile();
  void _requireUnchanged();
  void _prepareSession();
  // Closes the result of the statement before.
  void _send(const std::string& statement);
  std::vector<std::string> _driverSettings();
  void _checkBackslashesArePlain();
  std::optional<std::string> _refusalOf(const std::string& statement);
  void _describeColumns();
  bool _readColumn(std::size_t column, std::string& value);
  void _test(SQLRETURN result, const char* call);

  OdbcHandle m_environment;
  OdbcHandle m_connection;
  OdbcHandle m_statement;
  bool m_connected = false;
  Dialect m_dialect = Dialect::Other;
  std::optional<ImmutableFile> m_immutable;  // what SQLite reads without locks
  std::string m_driverSettings;              // statements that set again what PostgreSQL's driver had set
  bool m_startsPlain = false;                // PostgreSQL begins a session with all of that, and without a role
  std::vector<std::string> m_columns;
  std::vector<std::optional<std::string>> m_row;
  std::vector<char> m_buffer;  // first piece of every column
};

}  // namespace zaroruntime
