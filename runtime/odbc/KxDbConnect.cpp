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

using zaroruntime::OdbcError;
using zaroruntime::RuntimeError;
using zaroruntime::throwingText;
using zaroruntime::TransactionVerb;

namespace {

// Whoever made the connection string cut it at this length.
constexpr std::size_t kFullInitString = 511;
constexpr char kDatabaseKey[] = ";DATABASE=";

const char* orEmpty(const char* text) {
  return text != nullptr ? text : "";
}

// The database is the only thing that the connection string alone says; a password before it may hold anything.
std::string databaseOf(const std::string& initString) {
  if (initString.size() >= kFullInitString) {
    throw RuntimeError("the connection string was cut at " + std::to_string(kFullInitString) +
                       " bytes: data source, user, password and database are too long together");
  }
  const std::size_t key = initString.rfind(kDatabaseKey);
  return key == std::string::npos ? std::string() : initString.substr(key + std::strlen(kDatabaseKey));
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
  m_executed = m_hasRow = m_inTransaction = m_transactionLost = false;
  if (!m_refusal.empty()) {
    throw RuntimeError(m_refusal);
  }
  // Read anew each time, so that a corrected configuration is taken up.
  const auto installation = zaroruntime::Installation::fromEnvironment();
  const auto source = zaroruntime::readDataSource(installation, m_settings.dataSource);
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
  m_executed = m_hasRow = false;
  const TransactionVerb verb = zaroruntime::transactionVerb(text);
  if (m_transactionLost && verb == TransactionVerb::Rollback) {
    m_transactionLost = m_inTransaction = false;  // the server has rolled back
    return;
  }
  _requireExecutable(text, verb);
  if (!odbc.isConnected()) {
    reconnect(false);
  }
  if (verb == TransactionVerb::Commit && !m_inTransaction) {
    // Nothing was begun, so nothing is left to commit. SQLite calls that an error; ignoring its answer instead would
    // hide that it had rolled back by itself.
    odbc.closeResult();
    m_executed = true;
    return;
  }
  try {
    odbc.execute(text);
    // Batches for Microsoft SQL Server report row counts as results of their own before the rows.
    while (type == SQL_TYPE_MSSQL && !odbc.hasColumns() && odbc.nextResult()) {
    }
  } catch (const OdbcError& failure) {
    // Never sent again: it may have been executed. The next statement outside a transaction connects anew.
    _noteLoss(failure);
    if (m_transactionLost && verb == TransactionVerb::Commit) {
      throw RuntimeError(std::string(failure.what()) + "; whether the transaction was committed is not known",
                         zaroruntime::FailureKind::CommitInDoubt);
    }
    throw;
  }
  m_executed = true;
  if (verb == TransactionVerb::Begin || verb == TransactionVerb::Commit || verb == TransactionVerb::Rollback) {
    m_inTransaction = verb == TransactionVerb::Begin;
  }
}

int KxDbConnect::Impl::fetch() {
  m_hasRow = false;
  if (!m_executed) {
    return -1;
  }
  try {
    m_hasRow = odbc.fetch();
  } catch (const OdbcError& failure) {
    m_executed = false;
    _noteLoss(failure);
    throw;
  }
  return m_hasRow ? 0 : 1;
}

int KxDbConnect::Impl::nextResult() {
  m_hasRow = false;
  if (!m_executed) {
    return -1;
  }
  return odbc.isConnected() && odbc.nextResult() ? 0 : 1;
}

const char* KxDbConnect::Impl::text(const char* column) {
  if (!m_hasRow || column == nullptr) {
    return nullptr;
  }
  const auto index = odbc.findColumn(column);
  if (!index) {
    const std::string failure = std::string("the result has no column ") + column;
    zaroruntime::keepFailure(failure);
    PolicyLog::log(LogLevel::Error, "KxDbConnect::getColVal: %s", failure.c_str());
    return nullptr;
  }
  const auto& value = odbc.value(*index);
  return value ? value->c_str() : nullptr;
}

void KxDbConnect::Impl::checkOut() {
  if (odbc.isConnected()) {
    try {
      odbc.execute("SELECT 1");
      odbc.closeResult();
      return;
    } catch (const OdbcError& failure) {
      PolicyLog::log(LogLevel::Warning, "KxDbConnect: data source %s: idle connection is dead: %s",
                     m_settings.dataSource.c_str(), failure.what());
      odbc.disconnect();
    }
  }
  reconnect(true);
}

void KxDbConnect::Impl::checkIn() {
  m_executed = m_hasRow = false;
  odbc.closeResult();
  if (m_inTransaction && odbc.isConnected()) {
    try {
      odbc.execute("ROLLBACK");
    } catch (const OdbcError& failure) {
      PolicyLog::log(LogLevel::Error, "KxDbConnect: data source %s: an open transaction could not be rolled back: %s",
                     m_settings.dataSource.c_str(), failure.what());
      odbc.disconnect();  // which ends the transaction
    }
  }
  m_inTransaction = m_transactionLost = false;
}

void KxDbConnect::Impl::_requireExecutable(const std::string& statement, TransactionVerb verb) const {
  // The PostgreSQL driver would run a second statement behind a semicolon.
  const std::string wrong = statement.empty() ? "there is no statement" : zaroruntime::whyNotOneStatement(statement);
  if (!wrong.empty()) {
    throw RuntimeError(wrong);
  }
  if (verb == TransactionVerb::Unsupported) {
    throw RuntimeError("chained and prepared transactions are not supported");
  }
  if (verb == TransactionVerb::Savepoint && !m_inTransaction) {
    throw RuntimeError("a savepoint needs a transaction");
  }
  if (m_transactionLost) {
    throw RuntimeError("the connection was lost in a transaction, which was rolled back",
                       zaroruntime::FailureKind::ConnectionLost);
  }
}

void KxDbConnect::Impl::_noteLoss(const OdbcError& failure) {
  if (failure.isConnectionLost()) {
    odbc.disconnect();
    m_transactionLost = m_inTransaction;
  }
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
  return m_impl->odbc.statement();
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
