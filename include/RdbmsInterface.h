// The library's single door to the relational database.
//
// 1. A process calls one of the `Init` overloads once, on one thread, before it makes any object; the three tuning
//    setters, if used, come before the objects too. Nothing here locks.
// 2. An object is one unit of work: made on the stack, handed to the store operations, destroyed. It belongs to the
//    thread that made it. Objects of different threads may come and go at the same time.
// 3. The gateway's database libraries fail by throwing `const char*`. Construction and the transaction operations log
//    it; `executeSQL` and the row operations let it pass to the caller. Other exception types are never caught.
//
// Environment: ZARO_HOME (installation directory, required), ZARO_DB_DIR (sub-directory of its sql/), ZARO_DB_INI (file
// in its config/, default database.ini), ZARO_DB_TYPE ("mssql" selects the statement kind of `executeSQL`).
#pragma once

#include <string>

#include "KxDbConnect.h"
#include "ZaroPolicyExport.h"

class KxDataAccess;

namespace ZARO {

class ConfigFileOnDisk;

class ZARO_POLICY_EXPORT RdbmsInterface {
 public:
  // Reads the configuration and opens a connection pool, from which every object then takes its connection.
  //   poolSize   handed to `KxDataAccess::init` unchanged
  //   pool       receives the pool unless null; the library keeps owning it
  //   dsn, user, pass, database   read from the database ini file when null; `pass` may be encrypted or clear
  // Returns true when initialised, now or by an earlier call (which then changes nothing). After false the pool whose
  // opening failed stays in use for objects made afterwards, and a second call opens a fresh one.
  static bool Init(int poolSize, KxDataAccess** pool, const char* dsn, const char* user, const char* pass,
                   const char* database);
  // The same without a pool: every object opens a connection of its own.
  static bool Init(const char* dsn, const char* user, const char* pass, const char* database);

  // Asks the pool to rebuild itself. Returns the pool's answer (0 on success), or 0 without a pool.
  static int ReInit();

  // Tuning of connections that objects open themselves; 0 leaves the connection its own default.
  static void setDbConnectTimeOut(int seconds);
  static void setDbRetryTimeOut(int seconds);
  static void setDbReconnectTrial(int trials);

  // Reads one value of an ini file.
  //   required   whether a missing key is an error
  // Returns true when found, and always when not required (`value` is then untouched if the key is missing). False is
  // logged at level 1.
  static bool getParam(const char* section, const char* key, std::string& value, ConfigFileOnDisk& file, bool required);

  // Value of ZARO_DB_TYPE, or null.
  static const char* getDBType();
  // Directory of the statement files; never null, empty before `Init`. Valid until the next `Init`.
  static const char* GetSqlPath();
  // Path of the database ini file; never null, empty before `Init`. Valid until the next `Init`.
  static const char* GetConfigFilePath();

  // Takes a connection from the pool, or opens one. A failure is logged at level 1 and leaves an object without a
  // usable connection: without any, the operations below do nothing and answer as stated.
  RdbmsInterface();
  // Rolls back an open transaction, then gives the connection back or closes it.
  ~RdbmsInterface();

  RdbmsInterface(const RdbmsInterface&) = delete;
  RdbmsInterface& operator=(const RdbmsInterface&) = delete;

  // Runs one statement and opens its result, which stays readable until the next statement. The first form chooses the
  // kind from ZARO_DB_TYPE, anew each time. Throws `const char*`, also for a statement that is not UTF-8; does nothing
  // without a connection.
  void executeSQL(const char* sql);
  void executeSQL(const char* sql, KxDbConnect::SQL_TYPE type);

  // Answers of the connection (see `KxDbConnect`). Without one: -1, -1, null, 0, null, 0.
  int fetchNextRow();
  int fetchNextResultSet();
  const char* getColVal(const char* column);
  int getColValInt(const char* column);
  void* getStmtHandle();
  int getError(short handleType, void* handle, char* buffer, int bufferSize);

  // Begins a transaction; true and nothing executed when one is open already (there is no nesting). False is logged.
  bool startTransaction();
  // Commits, whether or not a transaction was begun here. False is logged; the destructor then rolls back.
  bool commitTransaction();

  // Makes a text fit for a quoted SQL literal by doubling single quotes. Backslashes and the LIKE signs (percent,
  // underscore, bracket) stay as they are.
  //   input    may be null
  //   work     storage for the escaped text, touched only when there is something to escape; keep it alive while
  //            `output` is in use
  //   output   receives `input` itself, or the text in `work`
  static void escapeData(const char* input, std::string& work, const char*& output);
  // Makes percent signs literal in a LIKE pattern of Microsoft SQL Server ("%" becomes "[%]"); nothing else is changed.
  // Arguments as for `escapeData`.
  static void replacePercentageSign(const char* input, std::string& work, const char*& output);

 private:
  static bool _getInitString(const char* dsn, const char* user, const char* pass, const char* database);
  static void _logConfigFileError(const char* section, const char* key, const char* file);
  static void _logConfigFileError(const char* file);
  void _rollbackTransaction();

  KxDbConnect* m_conn;
  bool m_inTransaction;

  static KxDataAccess* ms_DataAccess;
  static bool ms_bInitCalled;
  static std::string ms_initString;
  static std::string ms_dsn;
  static std::string ms_user;
  static std::string ms_pass;
  static std::string ms_sqlPath;
  static std::string ms_configPath;
  static int m_db_conn_timeout_secs;
  static int m_db_retry_timeout_secs;
  static int m_db_conn_retry;
};

}  // namespace ZARO
