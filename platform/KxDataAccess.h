// The gateway's pool of database connections; safe from any number of threads once `init` has returned.
#pragma once

#include <queue>
#include <string>
#include <vector>

class KxDbConnect;

class KxDataAccess {
 public:
  // An empty pool.
  KxDataAccess() : m_connectTimeOut(30), m_retryTimeOut(10), m_reconnectTrials(5), m_impl(nullptr) {}
  ~KxDataAccess();

  KxDataAccess(const KxDataAccess&) = delete;
  KxDataAccess& operator=(const KxDataAccess&) = delete;

  // Opens the pool; throws `const char*` on failure.
  void init(const char* initString, int poolSize, const char* dsn, const char* user, const char* pass);
  // A connection on loan; never null.
  KxDbConnect* getConnect();
  // Takes a connection back; null is ignored.
  void returnConnect(KxDbConnect* connection);
  // Rebuilds the pool; 0 on success.
  int reinit();

 private:
  struct Impl;

  int m_connectTimeOut;   // seconds
  int m_retryTimeOut;     // seconds
  int m_reconnectTrials;  // attempts
  std::vector<KxDbConnect*> m_connections;
  std::queue<KxDbConnect*> m_idle;
  std::string m_initString;
  std::string m_dsn;
  std::string m_user;
  std::string m_pass;
  Impl* m_impl;
};
