// The pool: at most `poolSize` connections, lent to threads and checked when they leave.
//
// 1. The mutexes guard the lists; connecting, resetting, rolling back and closing, which may take the network a while,
//    happen outside them. `KxDbConnect::Impl::checkOut` resets a session, `checkIn` rolls back (odbc/KxDbConnect.cpp).
// 2. A thread that finds every connection on loan waits as long as the retry time-out and then gets one above the size,
//    closed when it comes back. A thread that holds a connection already gets another at once: it would wait for itself.
// 3. After `reinit` the connections on loan belong to an older generation and are closed when they come back.
#include "KxDataAccess.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "KxDbConnect.h"
#include "PolicyLog.h"
#include "ZaroMutex.h"
#include "ZaroRuntime/ConnectionPool.h"
#include "ZaroRuntime/RuntimeError.h"
#include "common/ThrownText.h"
#include "odbc/KxDbConnectImpl.h"

using zaroruntime::RuntimeError;
using zaroruntime::throwingText;

namespace {

using Connections = std::vector<std::unique_ptr<KxDbConnect>>;

// What the pools of the process have in common.
struct Pools {
  struct Connecting {
    int timeOut;
    int trials;
  };
  std::mutex mutex;
  std::map<const void*, std::function<Connections()>> disowning;  // `disown` of each
  std::optional<Connecting> connecting;                           // if not as each pool says
};

Pools& pools() {
  static Pools* const all = new Pools;  // outlives the pools, which need not be destroyed at all
  return *all;
}

}  // namespace

struct KxDataAccess::Impl {
 public:
  Impl(KxDataAccess& owner, std::size_t poolSize);
  ~Impl();

  // A connection on loan to this thread, connected when it could be.
  KxDbConnect* lend();
  // Opens a connection as an idle one; throws std::exception.
  void openOne();
  void takeBack(KxDbConnect* connection);
  // From now on everything belongs to an older generation. Returns what was idle, for the caller to close.
  Connections disown();
  std::size_t loanCount() const { return m_loans.size(); }

 private:
  struct Loan {
    std::thread::id borrower;
    unsigned int generation;
    bool aboveSize;
  };
  using Lock = std::unique_lock<ZARO::ZaroMutex>;

  // A loan, registered but not yet looked at; `isNew` tells whether it was ever connected.
  std::pair<KxDbConnect*, bool> _borrow();
  void _tuneAndConnect(KxDbConnect& connection) const;
  bool _isAvailable() const { return !m_pool.m_idle.empty() || m_pool.m_connections.size() < m_size; }
  bool _isBorrower(std::thread::id thread) const;

  KxDataAccess& m_pool;
  const std::size_t m_size;
  ZARO::ZaroMutex m_mutex;
  std::condition_variable_any m_returned;
  std::map<KxDbConnect*, Loan> m_loans;
  unsigned int m_generation = 0;
};

KxDataAccess::Impl::Impl(KxDataAccess& owner, std::size_t poolSize) : m_pool(owner), m_size(poolSize) {
  const std::lock_guard<std::mutex> lock(pools().mutex);
  pools().disowning[this] = [this] { return disown(); };
}

KxDataAccess::Impl::~Impl() {
  const std::lock_guard<std::mutex> lock(pools().mutex);
  pools().disowning.erase(this);
}

KxDbConnect* KxDataAccess::Impl::lend() {
  const auto [connection, isNew] = _borrow();
  try {
    if (isNew) {
      _tuneAndConnect(*connection);
    } else {
      connection->m_impl->checkOut();
    }
  } catch (const std::exception& failure) {
    // The borrower gets it as it is: its first statement tries again, and fails with the reason.
    PolicyLog::log(LogLevel::Error, "KxDataAccess: %s", failure.what());
  }
  return connection;
}

void KxDataAccess::Impl::openOne() {
  auto connection = std::make_unique<KxDbConnect>();
  _tuneAndConnect(*connection);
  const Lock lock(m_mutex);
  if (m_pool.m_connections.size() < m_size) {
    m_pool.m_connections.reserve(m_pool.m_connections.size() + 1);
    m_pool.m_idle.push(connection.get());
    m_pool.m_connections.push_back(connection.release());
    m_returned.notify_one();
  }
}

void KxDataAccess::Impl::takeBack(KxDbConnect* connection) {
  std::unique_ptr<KxDbConnect> closed;  // once the mutex is free
  {
    const Lock lock(m_mutex);
    const auto& pooled = m_pool.m_connections;
    if (m_loans.count(connection) == 0) {
      if (std::find(pooled.begin(), pooled.end(), connection) != pooled.end()) {
        PolicyLog::log(LogLevel::Error, "KxDataAccess: a connection was returned twice");
      } else {
        closed.reset(connection);  // made by its user before there was a pool
      }
      return;
    }
  }
  connection->m_impl->checkIn();

  const Lock lock(m_mutex);
  const auto found = m_loans.find(connection);
  if (found == m_loans.end()) {
    return;  // two threads returned it at once, and the other was first
  }
  if (found->second.aboveSize || found->second.generation != m_generation) {
    closed.reset(connection);
  } else {
    m_pool.m_idle.push(connection);
    m_returned.notify_one();
  }
  m_loans.erase(found);
}

Connections KxDataAccess::Impl::disown() {
  const Lock lock(m_mutex);
  Connections idle;
  idle.reserve(m_pool.m_idle.size());
  for (; !m_pool.m_idle.empty(); m_pool.m_idle.pop()) {
    idle.emplace_back(m_pool.m_idle.front());
  }
  m_pool.m_connections.clear();
  ++m_generation;
  m_returned.notify_all();
  return idle;
}

std::pair<KxDbConnect*, bool> KxDataAccess::Impl::_borrow() {
  Lock lock(m_mutex);
  const auto me = std::this_thread::get_id();
  const bool available =
      _isAvailable() || (!_isBorrower(me) && m_returned.wait_for(lock, std::chrono::seconds(m_pool.m_retryTimeOut),
                                                                 [&] { return _isAvailable(); }));
  if (available && !m_pool.m_idle.empty()) {
    KxDbConnect* connection = m_pool.m_idle.front();
    m_loans[connection] = {me, m_generation, false};
    m_pool.m_idle.pop();
    return {connection, false};
  }
  if (!available && !_isBorrower(me)) {
    PolicyLog::log(LogLevel::Warning, "KxDataAccess: all %u connections are on loan; one more is opened",
                   static_cast<unsigned int>(m_size));
  }
  auto connection = std::make_unique<KxDbConnect>();
  m_pool.m_connections.reserve(m_pool.m_connections.size() + 1);
  m_loans[connection.get()] = {me, m_generation, !available};
  if (available) {
    m_pool.m_connections.push_back(connection.get());
  }
  return {connection.release(), true};
}

void KxDataAccess::Impl::_tuneAndConnect(KxDbConnect& connection) const {
  Pools::Connecting connecting = {m_pool.m_connectTimeOut, m_pool.m_reconnectTrials};
  {
    const std::lock_guard<std::mutex> lock(pools().mutex);
    connecting = pools().connecting.value_or(connecting);
  }
  connection.setDbConnectTimeOut(connecting.timeOut);
  connection.setDbRetrialTimeOut(m_pool.m_retryTimeOut);
  connection.setDbReconnectTrial(connecting.trials);
  connection.m_impl->connect(m_pool.m_initString.c_str(), m_pool.m_dsn.c_str(), m_pool.m_user.c_str(),
                             m_pool.m_pass.c_str());
}

bool KxDataAccess::Impl::_isBorrower(std::thread::id thread) const {
  return std::any_of(m_loans.begin(), m_loans.end(), [&](const auto& loan) { return loan.second.borrower == thread; });
}

namespace zaroruntime {

void setPoolConnecting(int timeOut, int trials) {
  const std::lock_guard<std::mutex> lock(pools().mutex);
  pools().connecting = {timeOut, trials};
}

void closePools() {
  Connections idle;
  const std::lock_guard<std::mutex> lock(pools().mutex);
  for (const auto& [pool, disown] : pools().disowning) {
    Connections some = disown();
    idle.insert(idle.end(), std::make_move_iterator(some.begin()), std::make_move_iterator(some.end()));
  }
}

}  // namespace zaroruntime

KxDataAccess::~KxDataAccess() {
  if (m_impl != nullptr) {
    m_impl->disown();
    if (m_impl->loanCount() > 0) {
      PolicyLog::log(LogLevel::Error, "KxDataAccess: the pool ends with %u connections on loan",
                     static_cast<unsigned int>(m_impl->loanCount()));
    }
  }
  delete m_impl;
}

void KxDataAccess::init(const char* initString, int poolSize, const char* dsn, const char* user, const char* pass) {
  throwingText([&] {
    if (m_impl != nullptr) {
      throw RuntimeError("the connection pool is open already");
    }
    if (poolSize < 1) {
      throw RuntimeError("a connection pool needs a size of at least 1, not " + std::to_string(poolSize));
    }
    m_initString = initString != nullptr ? initString : "";
    m_dsn = dsn != nullptr ? dsn : "";
    m_user = user != nullptr ? user : "";
    m_pass = pass != nullptr ? pass : "";
    m_impl = new Impl(*this, static_cast<std::size_t>(poolSize));
    m_impl->openOne();  // the others are made when they are needed
  });
}

KxDbConnect* KxDataAccess::getConnect() {
  // Without `init` there is nothing to connect to, which its first statement will say.
  return throwingText([&] { return m_impl != nullptr ? m_impl->lend() : new KxDbConnect; });
}

void KxDataAccess::returnConnect(KxDbConnect* connection) {
  if (connection == nullptr) {
    return;
  }
  if (m_impl == nullptr) {
    delete connection;
    return;
  }
  try {
    m_impl->takeBack(connection);
  } catch (const std::exception& failure) {
    // Callers are destructors, which cannot do anything about it.
    PolicyLog::log(LogLevel::Error, "KxDataAccess: a connection could not be taken back: %s", failure.what());
  }
}

int KxDataAccess::reinit() {
  if (m_impl == nullptr) {
    return 1;
  }
  try {
    m_impl->disown();
    m_impl->openOne();
    return 0;
  } catch (const std::exception& failure) {
    PolicyLog::log(LogLevel::Error, "KxDataAccess: the pool cannot be rebuilt: %s", failure.what());
    return 1;
  }
}
