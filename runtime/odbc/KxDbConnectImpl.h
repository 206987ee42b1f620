// What a connection of the platform consists of; shared with the pool, which keeps connections fit.
#pragma once

#include <exception>
#include <string>

#include "KxDbConnect.h"
#include "ZaroRuntime/DataSource.h"
#include "ZaroRuntime/Installation.h"
#include "odbc/OdbcConnection.h"
#include "odbc/OdbcError.h"
#include "odbc/TransactionState.h"
#include "sql/SqlText.h"

// Failures are thrown as std::exception; KxDbConnect turns them into texts.
struct KxDbConnect::Impl {
  // Tuning. A time of 0 means no limit of ours.
  int connectTimeOut = 30;  // seconds for one attempt
  int retryTimeOut = 0;     // seconds over which the trials are spread
  int reconnectTrials = 0;  // attempts after the first

  // Remembers where to connect, then connects.
  void connect(const char* initString, const char* dsn, const char* user, const char* pass);
  // Connects to where `connect` said: one attempt, and with trials further ones, evenly spread over the retry time-out,
  // as long as another may succeed. None begins after that time, however long the ones before took.
  void reconnect(bool withTrials);

  void execute(const char* statement, SQL_TYPE type);
  int fetch();
  int nextResult();
  // Text of a column of the current row; null for NULL, without a row, and, logged, for a column that the result lacks.
  const char* text(const char* column);

  // The statement's handle. What is done through it goes unseen: transactions, settings, attributes of the handle itself.
  void* giveHandle();

  // Makes an idle connection fit for its next user: resets its session, and reconnects with trials when it is dead.
  void checkOut();
  // Ends what the last user left open: result and transaction. Closes a connection that no reset makes as new.
  void checkIn();

  zaroruntime::OdbcConnection odbc;

 private:
  enum class Result {
    None,  // nothing was executed, or it failed
    Open,  // rows may be fetched
    AtRow  // the last fetch gave a row
  };

  void _requireExecutable(const std::string& statement, zaroruntime::TransactionVerb verb) const;
  void _send(const std::string& statement, SQL_TYPE type);
  void _begin(const std::string& statement);
  void _commit(const std::string& statement);
  void _rollBack(const std::string& statement, SQL_TYPE type);
  bool _mayTouchSession(const std::string& statement, zaroruntime::TransactionVerb verb) const;
  void _noteFailure(const std::exception& failure) noexcept;
  void _endTransaction() noexcept;
  void _logProblem(const char* problem, const std::exception& failure) const;

  zaroruntime::DatabaseSettings m_settings;
  zaroruntime::Dialect m_dialect = zaroruntime::Dialect::Other;
  std::string m_sessionSettings;                                    // what the data source executes after connecting
  std::string m_refusal = "not connected: connect was not called";  // why there is nothing to connect to; or empty
  Result m_result = Result::None;
  zaroruntime::TransactionState m_transaction;
  bool m_sessionTouched = false;  // a statement may have left something in the session since it was reset
  bool m_handleGiven = false;     // so that anything may have been done to the connection
};
