// One ODBC connection of the gateway. Every failure is a thrown `const char*`, whose text the thrower owns.
// An object belongs to one thread at a time.
#pragma once

class KxDbConnect {
 public:
  // How a statement text is to be run; SQL_TYPE_MSSQL is for statement files written for Microsoft SQL Server.
  enum SQL_TYPE { SQL_TYPE_DEFAULT = 0, SQL_TYPE_MSSQL = 1 };

  // Not connected yet.
  KxDbConnect();
  // Closes the connection.
  virtual ~KxDbConnect();

  KxDbConnect(const KxDbConnect&) = delete;
  KxDbConnect& operator=(const KxDbConnect&) = delete;

  // Tuning, to be set before `connect`.
  void setDbConnectTimeOut(int seconds);  // longest wait for one attempt to connect
  void setDbRetrialTimeOut(int seconds);  // time over which further attempts are spread
  void setDbReconnectTrial(int trials);   // further attempts after one that failed

  // Connects; throws `const char*`.
  void connect(const char* initString, const char* dsn, const char* user, const char* pass);

  // Runs one statement and opens its result, which ends the one before; throws `const char*`, also for a statement that
  // is not UTF-8 (overlong forms, surrogates and what lies beyond U+10FFFF are not).
  void executeSQL(const char* statement, SQL_TYPE type);

  // 0 a row; 1 no more rows or no columns; -1 nothing was executed; throws `const char*` on failure.
  int fetchNextRow();
  // 0 a result set; 1 no more; -1 nothing was executed; throws `const char*` on failure.
  int fetchNextResultSet();

  // Text of a column of the current row; null for SQL NULL and, logged at level 1, for a column that the result lacks.
  // Valid until the next fetch or execute.
  const char* getColVal(const char* column);
  // Integer value of a column of the current row; 0 where `getColVal` answers null.
  int getColValInt(const char* column);

  // The current statement handle, opaque.
  void* getStmtHandle();
  // Writes the diagnostics of a handle (kind and value as ODBC defines them) to `buffer` of `bufferSize` bytes.
  int getError(short handleType, void* handle, char* buffer, int bufferSize);

 private:
  friend class KxDataAccess;  // the pool checks and mends what it lends
  struct Impl;
  Impl* m_impl;
};
