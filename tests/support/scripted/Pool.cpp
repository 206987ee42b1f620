// KxDataAccess: lends connections of the scripted database.
#include <mutex>

#include "KxDataAccess.h"
#include "KxDbConnect.h"
#include "ZaroMutex.h"
#include "scripted/Platform.h"

using scripted::Point;
using scripted::quoted;

struct KxDataAccess::Impl {
  // Records the call and fails here if that was planned.
  void enter(Point point, const std::string& operation, const std::vector<std::string>& arguments = {}) const {
    scripted::platform().calls.add("KxDataAccess#" + std::to_string(number) + operation, arguments);
    scripted::platform().faults.pass(point);
  }

  std::size_t number;
  ZARO::ZaroMutex mutex;  // guards the queue of idle connections
};

KxDataAccess::~KxDataAccess() {
  for (KxDbConnect* connection : m_connections) {
    scripted::platform().database.countOpen(1);
    delete connection;
  }
  delete m_impl;
}

void KxDataAccess::init(const char* initString, int poolSize, const char* dsn, const char* user, const char* pass) {
  const bool empty = m_connections.empty() && m_idle.empty() && m_initString.empty() && m_dsn.empty() &&
                     m_user.empty() && m_pass.empty();
  const std::size_t number =
      scripted::platform().database.addPool(this, {m_connectTimeOut, m_retryTimeOut, m_reconnectTrials}, empty);
  m_impl = new Impl{number, {}};
  m_initString = initString;
  m_dsn = dsn;
  m_user = user;
  m_pass = pass;
  m_impl->enter(Point::PoolInit, ".init",
                {quoted(initString), std::to_string(poolSize), quoted(dsn), quoted(user), quoted(pass)});
}

KxDbConnect* KxDataAccess::getConnect() {
  m_impl->enter(Point::PoolGetConnect, ".getConnect");
  const std::lock_guard<ZARO::ZaroMutex> lock(m_impl->mutex);
  if (m_idle.empty()) {
    m_connections.push_back(new KxDbConnect);
    scripted::platform().database.countOpen(-1);
    m_idle.push(m_connections.back());
    m_idle.back()->connect(m_initString.c_str(), m_dsn.c_str(), m_user.c_str(), m_pass.c_str());
  }
  KxDbConnect* connection = m_idle.front();
  m_idle.pop();
  scripted::platform().database.countLent(1);
  return connection;
}

void KxDataAccess::returnConnect(KxDbConnect* connection) {
  m_impl->enter(Point::PoolReturnConnect, ".returnConnect", {connection != nullptr ? "a connection" : "null"});
  if (connection == nullptr) {
    return;
  }
  const std::lock_guard<ZARO::ZaroMutex> lock(m_impl->mutex);
  m_idle.push(connection);
  scripted::platform().database.countLent(-1);
}

int KxDataAccess::reinit() {
  m_impl->enter(Point::PoolReinit, ".reinit");
  return scripted::platform().database.reinitResult();
}
