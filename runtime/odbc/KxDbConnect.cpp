#include "KxDbConnect.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "PolicyLog.h"
#include "ZaroRuntime/RuntimeError.h"
#include "common/ThrownText.h"
#include "odbc/ConnectionString.h"
#include "odbc/KxDbConnectImpl.h"
#include "odbc/OdbcError.h"
#include "sql/SqlText.h"

using zaroruntime::FailureKind;
using zaroruntime::OdbcError;
using zaroruntime::RuntimeError;
using zaroruntime::throwingText;
using zaroruntime::TransactionVerb;

namespace {

// The library cuts the connection string at this length.
constexpr std::size_t kFullInitString = 511;
constexpr char kDatabaseKey[] = ";DATABASE=";

const char* orEmpty(const char* text) {
  return text != nullptr ? text : "";
}

// The database is the only thing that the connection string alone says; a password before it may hold anything.
std::string databaseOf(const std::string& initString) {
  if (initString.size() >= kFullInitString) {
    throw RuntimeError("the connection string was cut at " + std::to_string(kFullInitString) +
                           " bytes: data source, user, password and database are too long together",
                       FailureKind::Configuration);
  }
  const std::size_t key = initString.rfind(kDatabaseKey);
  return key == std::string::npos ? std::string() : initString.substr(key + std::strlen(kDatabaseKey));
}

bool saysNoTransaction(const std::exception& failure) {
  const auto* const told = dynamic_cast<const OdbcError*>(&failure);
  return told != nullptr && told->saysNoTransaction();
}

}  // namespace

void KxDbConnect::Impl::connect(const char* initString, const char* dsn, const char* user, const char* pass) {
  odbc.disconnect();
  m_refusal = "not connected: the connection string was refused";
  try {
    m_settings = {orEmpty(dsn), orEmpty(user), orEmpty(pass), databaseOf(orEmpty(initString))};
    m_refusal.clear();
  } catch (const RuntimeError& failure) {
    m_refusal = failure.what();
  }
  reconnect(true);
}

void KxDbConnect::Impl::reconnect(bool withTrials) {
  m_result = Result::None;
  m_transaction.rolledBack();  // whatever the old connection had open
  m_sessionTouched = false;
  m_handleGiven = false;
  if (!m_refusal.empty()) {
    throw RuntimeError(m_refusal, FailureKind::Configuration);
  }
  // Read anew each time, so that a corrected configuration is taken up.
  const auto installation = zaroruntime::Installation::fromEnvironment();
  const auto source = zaroruntime::readDataSource(installation, m_settings.dataSource);
  m_dialect = source.dialect;
  m_sessionSettings = zaroruntime::sessionSettings(source);
  const std::string target = zaroruntime::connectionString(source, m_settings, installation);
  const int trials = withTrials ? std::max(reconnectTrials, 0) : 0;
  const auto retryTime = std::chrono::milliseconds(1000LL * std::max(retryTimeOut, 0));
  const auto begin = std::chrono::steady_clock::now();
  for (int trial = 1;; ++trial) {
    try {
      odbc.connect(target, source.dialect, connectTimeOut);
      return;
    } catch (const OdbcError& failure) {
      const bool inTime = retryTimeOut <= 0 || std::chrono::steady_clock::now() < begin + retryTime;
      if (trial > trials || !inTime || !failure.mayConnectLater()) {
        throw RuntimeError("data source " + source.name + ": " + failure.what(), failure.kind());
      }
      PolicyLog::log(LogLevel::Warning, "KxDbConnect: data source %s: %s; trial %d of %d follows", source.name.c_str(),
                     failure.what(), trial, trials);
    }
    std::this_thread::sleep_until(begin + retryTime * trial / trials);
  }
}

void KxDbConnect::Impl::execute(const char* statement, SQL_TYPE type) {
  const std::string text = orEmpty(statement);
  m_result = Result::None;
  const TransactionVerb verb = zaroruntime::transactionVerb(text);
  _requireExecutable(text, verb);
  if (m_transaction.isOver()) {
    m_transaction.rolledBack();  // by the database; there is nothing left to send a ROLLBACK for
    return;
  }
  if (!odbc.isConnected()) {
    reconnect(false);
  }
  m_sessionTouched = m_sessionTouched || _mayTouchSession(text, verb);
  switch (verb) {
    case TransactionVerb::Commit:
      _commit(text);
      break;
    case TransactionVerb::Rollback:
      _rollBack(text, type);
      break;
    case TransactionVerb::Begin:
      _begin(text);
      break;
    default:
      _send(text, type);
  }
  m_result = Result::Open;
}

int KxDbConnect::Impl::fetch() {
  if (m_result == Result::None) {
    return -1;
  }
  m_result = Result::Open;
  try {
    if (!odbc.fetch()) {
      return 1;
    }
  } catch (const std::exception& failure) {
    m_result = Result::None;
    _noteFailure(failure);
    throw;
  }
  m_result = Result::AtRow;
  return 0;
}

int KxDbConnect::Impl::nextResult() {
  if (m_result == Result::None) {
    return -1;
  }
  m_result = Result::Open;
  try {
    return odbc.isConnected() && odbc.nextResult() ? 0 : 1;
  } catch (const std::exception& failure) {
    m_result = Result::None;
    _noteFailure(failure);
    throw;
  }
}

const char* KxDbConnect::Impl::text(const char* column) {
  if (m_result != Result::AtRow || column == nullptr) {
    return nullptr;
  }
  const auto index = odbc.findColumn(column);
  if (!index) {
    const std::string failure = std::string("the result has no column ") + column;
    zaroruntime::keepFailure(failure, FailureKind::Configuration);
    PolicyLog::log(LogLevel::Error, "KxDbConnect::getColVal: %s", failure.c_str());
    return nullptr;
  }
  const auto& value = odbc.value(*index);
  return value ? value->c_str() : nullptr;
}

void* KxDbConnect::Impl::giveHandle() {
  m_handleGiven = odbc.isConnected();
  return odbc.statement();
}

void KxDbConnect::Impl::checkOut() {
  if (odbc.isConnected()) {
    try {
      odbc.resetSession(m_sessionSettings);
      m_sessionTouched = false;
      return;
    } catch (const std::exception& failure) {
      _logProblem("an idle connection is dead or cannot be reset, and is replaced", failure);
      odbc.disconnect();
    }
  }
  reconnect(true);
}

void KxDbConnect::Impl::checkIn() {
  m_result = Result::None;
  odbc.closeResult();
  // Servers that we do not know may have begun one that we did not see.
  if (odbc.isConnected() && (m_transaction.isOpen() || m_dialect == zaroruntime::Dialect::Other)) {
    _endTransaction();
  }
  m_transaction.rolledBack();
  if (m_handleGiven || (m_sessionTouched && !odbc.canResetSession())) {
    odbc.disconnect();
  }
}

void KxDbConnect::Impl::_requireExecutable(const std::string& statement, TransactionVerb verb) const {
  // The PostgreSQL driver would run a second statement behind a semicolon.
  const std::string wrong = statement.empty() ? "there is no statement" : zaroruntime::whyNotOneStatement(statement);
  if (!wrong.empty()) {
    throw RuntimeError(wrong);
  }
  if (zaroruntime::copiesThroughClient(statement)) {
    throw RuntimeError("COPY from STDIN and to STDOUT are not supported: the rows would go past ODBC");
  }
  if (m_transaction.isOver()) {
    if (verb != TransactionVerb::Rollback) {
      m_transaction.refuse();
    }
    return;
  }
  if (verb == TransactionVerb::Unsupported) {
    throw RuntimeError("chained and prepared transactions are not supported");
  }
  if (verb == TransactionVerb::Begin && m_transaction.isOpen()) {
    throw RuntimeError("a transaction is open already");
  }
  if (verb == TransactionVerb::Savepoint && !m_transaction.isOpen()) {
    throw RuntimeError("a savepoint needs a transaction");
  }
}

// Whether a statement may leave something in the session. On PostgreSQL a reset removes it; on SQLite statements that
// read and write rows leave nothing; elsewhere any may.
bool KxDbConnect::Impl::_mayTouchSession(const std::string& statement, TransactionVerb verb) const {
  return m_dialect != zaroruntime::Dialect::SQLite ||
         (verb == TransactionVerb::None && !zaroruntime::isPlainData(statement));
}

// Never sent again when the connection is lost: it may have been executed. The next statement outside a transaction
// connects anew.
void KxDbConnect::Impl::_send(const std::string& statement, SQL_TYPE type) {
  try {
    odbc.execute(statement);
    // Batches for Microsoft SQL Server report row counts as results of their own before the rows.
    while (type == SQL_TYPE_MSSQL && !odbc.hasColumns() && odbc.nextResult()) {
    }
  } catch (const std::exception& failure) {
    _noteFailure(failure);
    throw;
  }
}

// Nothing comes between the database's answer and what is known here: a transaction that was open without our knowledge
// would stay so on a connection of the pool.
void KxDbConnect::Impl::_begin(const std::string& statement) {
  try {
    odbc.control(statement);
  } catch (const std::exception& failure) {
    _noteFailure(failure);
    throw;
  }
  m_transaction.begun();
}

// Sent even when no BEGIN was seen, and then a database that calls that an error has nothing to commit.
void KxDbConnect::Impl::_commit(const std::string& statement) {
  try {
    odbc.control(statement);
  } catch (const std::exception& failure) {
    if (m_transaction.isNone() && saysNoTransaction(failure)) {
      odbc.closeResult();
      return;
    }
    const bool open = m_transaction.isOpen();
    if (zaroruntime::leavesCommitOpen(failure)) {
      odbc.disconnect();
      if (open) {
        m_transaction.leftInDoubt();
      }
      zaroruntime::throwInDoubt(failure);
    }
    // PostgreSQL has rolled back; SQLite leaves it open, with its locks.
    _endTransaction();
    if (open) {
      m_transaction.undone(failure);
    }
    throw;
  }
  m_transaction.committed();
}

void KxDbConnect::Impl::_rollBack(const std::string& statement, SQL_TYPE type) {
  if (!m_transaction.isOpen()) {
    _send(statement, type);
    return;
  }
  try {
    odbc.execute(statement);
  } catch (const std::exception& failure) {
    _logProblem("a transaction is rolled back by closing the connection", failure);
    odbc.disconnect();
  }
  m_transaction.rolledBack();
}

// A statement that fails may take the transaction with it. SQLite rolls back by itself when the disk is full, a file
// cannot be read or written, or memory runs out; PostgreSQL refuses the rest, and then answers a COMMIT with success.
void KxDbConnect::Impl::_noteFailure(const std::exception& failure) noexcept {
  const bool open = m_transaction.isOpen();
  if (zaroruntime::leavesOutcomeOpen(failure)) {
    odbc.disconnect();
    if (open && zaroruntime::kindOf(failure) == zaroruntime::FailureKind::ConnectionLost) {
      m_transaction.lostWithConnection();
    } else if (open) {
      m_transaction.undone(failure);
    }
    return;
  }
  if (open && !odbc.isTransactionOpen()) {
    _endTransaction();
    m_transaction.undone(failure);
  }
}

// Rolls back whatever is open; closing the connection does so too.
void KxDbConnect::Impl::_endTransaction() noexcept {
  try {
    odbc.execute("ROLLBACK");
    odbc.closeResult();
  } catch (const std::exception& failure) {
    if (!saysNoTransaction(failure)) {
      _logProblem("a transaction is rolled back by closing the connection", failure);
      odbc.disconnect();
    }
  }
}

void KxDbConnect::Impl::_logProblem(const char* problem, const std::exception& failure) const {
  PolicyLog::log(LogLevel::Warning, "KxDbConnect: data source %s: %s: %s", m_settings.dataSource.c_str(), problem,
                 failure.what());
}

KxDbConnect::KxDbConnect() : m_impl(throwingText([] { return new Impl; })) {}

KxDbConnect::~KxDbConnect() {
  delete m_impl;
}

void KxDbConnect::setDbConnectTimeOut(int seconds) {
  m_impl->connectTimeOut = seconds;
}

void KxDbConnect::setDbRetrialTimeOut(int seconds) {
  m_impl->retryTimeOut = seconds;
}

void KxDbConnect::setDbReconnectTrial(int trials) {
  m_impl->reconnectTrials = trials;
}

void KxDbConnect::connect(const char* initString, const char* dsn, const char* user, const char* pass) {
  throwingText([&] { m_impl->connect(initString, dsn, user, pass); });
}

void KxDbConnect::executeSQL(const char* statement, SQL_TYPE type) {
  throwingText([&] { m_impl->execute(statement, type); });
}

int KxDbConnect::fetchNextRow() {
  return throwingText([&] { return m_impl->fetch(); });
}

int KxDbConnect::fetchNextResultSet() {
  return throwingText([&] { return m_impl->nextResult(); });
}

const char* KxDbConnect::getColVal(const char* column) {
  return throwingText([&] { return m_impl->text(column); });
}

int KxDbConnect::getColValInt(const char* column) {
  const char* text = getColVal(column);
  // Identifiers are unsigned 32-bit numbers; callers turn what comes out negative back into one.
  return text != nullptr ? static_cast<int>(std::strtoll(text, nullptr, 10)) : 0;
}

void* KxDbConnect::getStmtHandle() {
  return m_impl->giveHandle();
}

int KxDbConnect::getError(short handleType, void* handle, char* buffer, int bufferSize) {
  if (buffer == nullptr || bufferSize <= 0) {
    return -1;
  }
  return throwingText([&] {
    const auto found = zaroruntime::readDiagnostics(handleType, handle);
    std::snprintf(buffer, static_cast<std::size_t>(bufferSize), "%s", found.text.c_str());
    return found.text.empty() ? 1 : 0;
  });
}
