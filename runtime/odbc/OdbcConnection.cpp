#include "odbc/OdbcConnection.h"

#include <algorithm>
#include <cstdio>

#include "common/AsciiText.h"
#include "common/Utf8.h"
#include "odbc/ConnectTurn.h"
#include "odbc/OdbcError.h"

namespace zaroruntime {

namespace {

constexpr std::size_t kFirstPiece = 16 * 1024;

// Texts get their quotes doubled and nothing else, so a backslash must not escape a quote, whatever the role, the
// database or the data source has set.
constexpr char kPlainBackslashes[] = "SET standard_conforming_strings=on";

constexpr char kDiscardAll[] = "DISCARD ALL";

// DISCARD ALL cannot stand beside other statements. Where settings follow, this does the same, except discarding cached
// plans, which has no visible effect. RESET ROLE puts back a role that is set for the user or database.
constexpr char kResetSession[] =
    "CLOSE ALL;SET SESSION AUTHORIZATION DEFAULT;RESET ROLE;RESET ALL;DEALLOCATE ALL;UNLISTEN *;"
    "SELECT pg_advisory_unlock_all();DISCARD TEMP;DISCARD SEQUENCES;";

OdbcHandle newEnvironment() {
  OdbcHandle environment(SQL_HANDLE_ENV, SQL_NULL_HANDLE);
  SQLSetEnvAttr(environment.get(), SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0);
  return environment;
}

// ODBC takes numbers where it takes pointers.
SQLPOINTER attribute(SQLULEN value) {
  return reinterpret_cast<SQLPOINTER>(value);  // NOLINT(performance-no-int-to-ptr)
}

// The functions take their input as non-const.
SQLCHAR* input(const std::string& text) {
  return reinterpret_cast<SQLCHAR*>(const_cast<char*>(text.c_str()));
}

// SQLite would store any bytes and PostgreSQL refuses them; both refuse here, before anything is sent.
void refuseWhatIsNotUtf8(const std::string& statement) {
  const std::size_t at = findNotUtf8(statement);
  if (at != std::string::npos) {
    char text[96];
    std::snprintf(text, sizeof text, "the statement is not text in UTF-8: its byte %zu is 0x%02x", at + 1,
                  static_cast<unsigned int>(static_cast<unsigned char>(statement[at])));
    throw OdbcError("22021", 0, text, false);
  }
}

}  // namespace

OdbcConnection::OdbcConnection() : m_buffer(kFirstPiece) {}

OdbcConnection::~OdbcConnection() {
  disconnect();
}

void OdbcConnection::connect(const std::string& connectionString, Dialect dialect, int timeOut) {
  disconnect();
  m_dialect = dialect;
  if (m_environment.get() == SQL_NULL_HANDLE) {
    m_environment = newEnvironment();
  }
  // A new handle for every connection: some drivers keep the failed state of the old one.
  m_connection = OdbcHandle(SQL_HANDLE_DBC, m_environment.get());
  if (timeOut > 0) {
    SQLSetConnectAttr(m_connection.get(), SQL_ATTR_LOGIN_TIMEOUT, attribute(static_cast<SQLULEN>(timeOut)), 0);
  }
  std::optional<ConnectTurn> turn;
  if (dialect != Dialect::SQLite) {  // whose driver leaves the locale alone
    turn.emplace(timeOut);
  }
  SQLSMALLINT length = 0;
  _test(SQLDriverConnect(m_connection.get(), nullptr, input(connectionString),
                         static_cast<SQLSMALLINT>(connectionString.size()), nullptr, 0, &length, SQL_DRIVER_NOPROMPT),
        "SQLDriverConnect");
  turn.reset();
  m_connected = true;
  try {
    m_statement = OdbcHandle(SQL_HANDLE_STMT, m_connection.get());
    // Braces in a text are not ODBC's own escapes.
    SQLSetStmtAttr(m_statement.get(), SQL_ATTR_NOSCAN, attribute(SQL_NOSCAN_ON), 0);
    if (dialect == Dialect::SQLite) {
      const std::string file = _databaseFile();
      if (opensImmutable(connectionString)) {
        m_immutable.emplace(file);
      }
    } else if (dialect == Dialect::PostgreSQL) {
      _prepareSession();
    } else {
      _checkBackslashesArePlain();
    }
  } catch (...) {
    disconnect();
    throw;
  }
}

void OdbcConnection::setStatementTimeOut(int seconds) {
  // Drivers without it have a limit of their own in the data source.
  SQLSetStmtAttr(m_statement.get(), SQL_ATTR_QUERY_TIMEOUT, attribute(static_cast<SQLULEN>(seconds)), 0);
}

void OdbcConnection::resetSession(const std::string& settings) {
  switch (m_dialect) {
    case Dialect::SQLite:
      return;  // nothing that could be dead
    case Dialect::PostgreSQL:
      execute(m_startsPlain && settings.empty() ? kDiscardAll
                                                : kResetSession + m_driverSettings + settings + kPlainBackslashes);
      break;
    case Dialect::Other:
      execute("SELECT 1");
  }
  closeResult();
}

bool OdbcConnection::isTransactionOpen() noexcept {
  try {
    switch (m_dialect) {
      case Dialect::SQLite:
        // Within a transaction, and nowhere else, a BEGIN is refused for that reason. A deferred one takes no lock.
        return _refusalOf("BEGIN").value_or("").find("within a transaction") != std::string::npos;
      case Dialect::PostgreSQL:
        // Refused without a transaction, and in one that can only be rolled back.
        return !_refusalOf("SAVEPOINT zaro_probe;RELEASE zaro_probe").has_value();
      case Dialect::Other:
        break;
    }
  } catch (const std::exception&) {
    // Not known either.
  }
  return false;
}

void OdbcConnection::disconnect() noexcept {
  m_columns.clear();
  m_row.clear();
  m_statement.reset();
  if (m_connected) {
    SQLDisconnect(m_connection.get());
    m_connected = false;
  }
  m_connection.reset();
  m_immutable.reset();
}

void OdbcConnection::execute(const std::string& statement) {
  if (m_dialect == Dialect::PostgreSQL && statement.find('\\') != std::string::npos) {
    // A statement may have changed it, or the server's configuration, to which a session is reset.
    _send(kPlainBackslashes);
  }
  _send(statement);
  _describeColumns();
  _requireUnchanged();
}

void OdbcConnection::control(const std::string& statement) {
  _send(statement);
}

void OdbcConnection::_send(const std::string& statement) {
  closeResult();
  refuseWhatIsNotUtf8(statement);
  const SQLRETURN result = SQLExecDirect(m_statement.get(), input(statement), static_cast<SQLINTEGER>(statement.size()));
  if (result != SQL_NO_DATA) {  // an update of nothing
    _test(result, "SQLExecDirect");
  }
}

void OdbcConnection::closeResult() noexcept {
  m_columns.clear();
  m_row.clear();
  if (m_statement.get() != SQL_NULL_HANDLE) {
    SQLFreeStmt(m_statement.get(), SQL_CLOSE);
  }
}

bool OdbcConnection::fetch() {
  m_row.clear();
  if (!hasColumns()) {
    return false;
  }
  const SQLRETURN result = SQLFetch(m_statement.get());
  if (result == SQL_NO_DATA) {
    _requireUnchanged();
    return false;
  }
  _test(result, "SQLFetch");
  // A column can be read only once, and callers may ask for it again.
  m_row.resize(m_columns.size());
  for (std::size_t column = 0; column < m_columns.size(); ++column) {
    std::string text;
    if (_readColumn(column, text)) {
      m_row[column] = std::move(text);
    }
  }
  _requireUnchanged();
  return true;
}

bool OdbcConnection::nextResult() {
  m_columns.clear();
  m_row.clear();
  const SQLRETURN result = SQLMoreResults(m_statement.get());
  if (result == SQL_NO_DATA) {
    return false;
  }
  _test(result, "SQLMoreResults");
  _describeColumns();
  return true;
}

std::optional<std::size_t> OdbcConnection::findColumn(const char* name) const {
  for (std::size_t column = 0; column < m_columns.size(); ++column) {
    if (equalsIgnoringCase(m_columns[column], name)) {
      return column;
    }
  }
  return std::nullopt;
}

// A file that cannot be opened for writing, or a wrong setting, silently gives a temporary database.
std::string OdbcConnection::_databaseFile() {
  execute("PRAGMA database_list");
  const auto column = findColumn("file");
  std::string file = column && fetch() ? value(*column).value_or("") : "";
  closeResult();
  if (file.empty()) {
    throw OdbcError("08001", 0, "the driver opened a temporary database instead of the file", false);
  }
  return file;
}

// What was read may be half of before and half of after a change. The next statement opens the file anew.
void OdbcConnection::_requireUnchanged() {
  if (m_immutable && !m_immutable->isUnchanged()) {
    const std::string path = m_immutable->path();
    disconnect();
    throw OdbcError("40001", 0, "database file " + path + ": another program changed it while it was read", false);
  }
}

// Makes backslashes plain, and finds out what a reset takes back of what the driver has set for itself when it connected.
void OdbcConnection::_prepareSession() {
  execute(kPlainBackslashes);
  const std::vector<std::string> set = _driverSettings();
  execute("BEGIN");
  execute("RESET ALL");
  const std::vector<std::string> reset = _driverSettings();
  execute("ROLLBACK");
  m_driverSettings.clear();
  for (std::size_t i = 0; i < set.size(); ++i) {
    if (set[i] != reset.at(i)) {
      m_driverSettings += set[i];
    }
  }
  execute("SELECT current_setting('role')");
  m_startsPlain = m_driverSettings.empty() && fetch() && value(0) == "none";
  closeResult();
}

// The statements that would set anew what PostgreSQL's driver and we have set. Numbers are written in full with any
// extra_float_digits above 0.
std::vector<std::string> OdbcConnection::_driverSettings() {
  execute(
      "SELECT format('SET %s=%L;',name,CASE WHEN name='extra_float_digits' AND current_setting(name)::int>0 THEN '1' "
      "ELSE current_setting(name) END) FROM unnest(ARRAY['DateStyle','extra_float_digits','client_encoding',"
      "'standard_conforming_strings']) AS name");
  std::vector<std::string> statements;
  while (fetch()) {
    statements.push_back(value(0).value_or(""));
  }
  return statements;
}

// What makes backslashes plain differs from server to server, so others are only asked how they read two of them.
void OdbcConnection::_checkBackslashesArePlain() {
  execute("SELECT '\\\\'");
  const bool plain = fetch() && value(0) == "\\\\";
  closeResult();
  if (!plain) {
    throw OdbcError("0A000", 0,
                    "the server takes a backslash in a text for an escape, so that a name could end the text it stands "
                    "in; have it read backslashes as any other character (such as by sql_mode NO_BACKSLASH_ESCAPES)",
                    false);
  }
}

// Why a statement is refused; nothing when it is not. It has a handle of its own, so that the diagnostics of the
// statement before stay.
std::optional<std::string> OdbcConnection::_refusalOf(const std::string& statement) {
  const OdbcHandle handle(SQL_HANDLE_STMT, m_connection.get());
  if (SQL_SUCCEEDED(SQLExecDirect(handle.get(), input(statement), SQL_NTS))) {
    return std::nullopt;
  }
  return readDiagnostics(SQL_HANDLE_STMT, handle.get()).text;
}

void OdbcConnection::_describeColumns() {
  m_row.clear();
  SQLSMALLINT count = 0;
  _test(SQLNumResultCols(m_statement.get(), &count), "SQLNumResultCols");
  m_columns.clear();
  for (SQLSMALLINT column = 1; column <= count; ++column) {
    SQLCHAR name[256] = {};
    SQLSMALLINT length = 0;
    SQLSMALLINT type = 0;
    SQLSMALLINT digits = 0;
    SQLSMALLINT nullable = 0;
    SQLULEN size = 0;
    _test(SQLDescribeCol(m_statement.get(), static_cast<SQLUSMALLINT>(column), name, sizeof name, &length, &type, &size,
                         &digits, &nullable),
          "SQLDescribeCol");
    m_columns.emplace_back(reinterpret_cast<const char*>(name));
  }
}

// False for NULL. Everything is read as characters: as a C integer an identifier above 2^31 would come out negative.
bool OdbcConnection::_readColumn(std::size_t column, std::string& value) {
  const auto number = static_cast<SQLUSMALLINT>(column + 1);
  SQLLEN length = 0;
  _test(SQLGetData(m_statement.get(), number, SQL_C_CHAR, m_buffer.data(), static_cast<SQLLEN>(m_buffer.size()), &length),
        "SQLGetData");
  if (length == SQL_NULL_DATA) {
    return false;
  }
  const auto isCut = [&](std::size_t room) { return length == SQL_NO_TOTAL || static_cast<std::size_t>(length) >= room; };
  if (!isCut(m_buffer.size())) {
    value.assign(m_buffer.data(), static_cast<std::size_t>(length));
    return true;
  }
  // The length told is what was left before the call, unless the driver does not know it. So the rest is read in one
  // piece: reading in many small ones makes some drivers copy the value again each time.
  std::size_t filled = m_buffer.size() - 1;
  value.assign(m_buffer.data(), filled);
  for (bool cut = true; cut;) {
    const std::size_t room = length != SQL_NO_TOTAL ? static_cast<std::size_t>(length) + 1 : 2 * filled;
    value.resize(filled + room);
    const SQLRETURN result =
        SQLGetData(m_statement.get(), number, SQL_C_CHAR, &value[filled], static_cast<SQLLEN>(room), &length);
    if (result == SQL_NO_DATA) {
      break;
    }
    _test(result, "SQLGetData");
    cut = isCut(room);
    filled += cut ? room - 1 : static_cast<std::size_t>(length);
  }
  value.resize(filled);
  return true;
}

void OdbcConnection::_test(SQLRETURN result, const char* call) {
  if (SQL_SUCCEEDED(result)) {
    return;
  }
  OdbcDiagnostics found = readDiagnostics(SQL_HANDLE_STMT, m_statement.get());
  if (found.text.empty()) {
    found = readDiagnostics(SQL_HANDLE_DBC, m_connection.get());
  }
  SQLUINTEGER dead = SQL_CD_FALSE;
  if (m_connected) {
    SQLGetConnectAttr(m_connection.get(), SQL_ATTR_CONNECTION_DEAD, &dead, sizeof dead, nullptr);
  }
  std::string text = std::string(call) + ": " + (found.text.empty() ? "failed without a reason" : found.text);
  if (text.find("Can't open lib") != std::string::npos) {
    text += " (is the driver's package installed: libsqliteodbc, odbc-postgresql?)";
  }
  if (text.find("attempt to write a readonly database") != std::string::npos) {
    text += " (this user may only read the database's file, or the directory that it is in)";
  }
  throw OdbcError(found.state, found.native, text, dead == SQL_CD_TRUE);
}

}  // namespace zaroruntime
