// What a connection of the platform consists of; shared with the pool, which keeps connections fit.
#pragma once

#include <string>

#include "KxDbConnect.h"
#include "ZaroRuntime/DataSource.h"
#include "ZaroRuntime/Installation.h"
#include "odbc/OdbcConnection.h"
#include "odbc/OdbcError.h"
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

  // Makes an idle connection fit for its next user: pings it, and reconnects with trials when it is dead.
  void checkOut();
  // Ends what the last user left open: result and transaction.
  void checkIn();

  zaroruntime::OdbcConnection odbc;

 private:
  void _requireExecutable(const std::string& statement, zaroruntime::TransactionVerb verb) const;
  void _noteLoss(const zaroruntime::OdbcError& failure);

  zaroruntime::DatabaseSettings m_settings;
  std::string m_refusal = "not connected: connect was not called";  // why there is nothing to connect to; or empty
  bool m_executed = false;                                          // something was executed since connecting
  bool m_hasRow = false;                                            // the last fetch gave a row
  bool m_inTransaction = false;    // a BEGIN went through, and no COMMIT or ROLLBACK since
  bool m_transactionLost = false;  // the connection died in it
};
