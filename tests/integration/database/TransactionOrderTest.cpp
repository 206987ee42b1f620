// One pooled connection in every order of steps up to a length: whatever is acknowledged is what another connection sees.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "KxDataAccess.h"
#include "KxDbConnect.h"
#include "ZaroRuntime/IniFile.h"
#include "support/TestInstallation.h"

namespace {

using zarotest::Dialect;

enum class Step { Begin, Statement, FailingStatement, FatalStatement, Commit, FailingCommit, Rollback, Loss, Return };

constexpr std::string_view kLetters = "BSEXCFRLP";  // of the steps

// What the client of the connection may believe, from answers alone.
enum class Belief {
  None,  // no transaction
  Open,  // a BEGIN was acknowledged, and nothing has ended it
  Over   // its COMMIT failed, or it cannot be committed any more; a ROLLBACK is due
};

// Sockets of this process that lead to the server.
std::set<int> socketsTo(const std::string& port) {
  std::set<int> sockets;
  for (int fd = 3; fd < 1024; ++fd) {
    sockaddr_in peer = {};
    socklen_t length = sizeof peer;
    if (getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &length) == 0 && peer.sin_family == AF_INET &&
        std::to_string(ntohs(peer.sin_port)) == port) {
      sockets.insert(fd);
    }
  }
  return sockets;
}

class TransactionOrder : public zarotest::OnEveryDatabase {
 protected:
  void SetUp() override {
    OnEveryDatabase::SetUp();
    if (IsSkipped()) {
      return;
    }
    if (home().dialect() == Dialect::SQLite) {
      _withoutWaitingForTheDisk();
    }
    m_observer = home().session();
    m_observer->run("CREATE TABLE t(id INTEGER PRIMARY KEY)");
    m_observer->run("INSERT INTO t VALUES(0)");
    m_observer->run("CREATE TABLE child(parent INTEGER REFERENCES t(id) DEFERRABLE INITIALLY DEFERRED)");
    if (home().dialect() == Dialect::PostgreSQL) {
      m_observerSockets = socketsTo(zarotest::postgresqlServer()->port);
    }
    const auto& settings = home().settings();
    m_pool.init(home().initString().c_str(), 1, settings.dataSource.c_str(), settings.user.c_str(),
                settings.password.c_str());
    m_connection = m_pool.getConnect();
  }

  void TearDown() override {
    if (m_connection != nullptr) {
      m_pool.returnConnect(m_connection);
    }
  }

  // Steps of an order: as many as ZARO_STEPS says, or else what takes seconds.
  std::size_t length() const {
    const char* steps = std::getenv("ZARO_STEPS");
    return steps != nullptr ? std::stoul(steps) : home().dialect() == Dialect::SQLite ? 4 : 3;
  }

  // Follows an order, and names it when it fails; after a failure nothing, since the first tells enough.
  void check(const std::vector<Step>& order) {
    if (HasFailure()) {
      return;
    }
    follow(order);
    if (HasFailure()) {
      std::string letters;
      for (const Step step : order) {
        letters += kLetters[static_cast<std::size_t>(step)];
      }
      ADD_FAILURE() << "in the order " << letters;
    }
  }

 private:
  using Rows = std::vector<std::string>;

  // The order is followed from a fresh loan; every step is checked, so shorter orders need not be followed by themselves.
  void follow(const std::vector<Step>& order) {
    m_before = m_lastId;
    m_stored.clear();
    m_pending.clear();
    m_belief = Belief::None;
    m_dead = false;
    for (const Step step : order) {
      take(step);
      ASSERT_EQ(seen(), expected());
    }
    take(Step::Return);
    ASSERT_EQ(seen(), expected());
  }

  void take(Step step) {
    switch (step) {
      case Step::Begin:
        return begin();
      case Step::Statement:
        return insert();
      case Step::FailingStatement:
        return fail("INSERT INTO t VALUES(0)", m_belief);
      case Step::FatalStatement:
        return fail(fatalStatement(), m_belief == Belief::Open ? Belief::Over : m_belief);
      case Step::Commit:
        return commit();
      case Step::FailingCommit:
        return failCommit();
      case Step::Rollback:
        return rollBack();
      case Step::Loss:
        return lose();
      case Step::Return:
        m_pool.returnConnect(m_connection);
        m_connection = m_pool.getConnect();
        m_pending.clear();
        m_belief = Belief::None;
        m_dead = false;
    }
  }

  void _withoutWaitingForTheDisk() {
    const std::string path = home().directory().path("config/odbc.ini");
    zaroruntime::IniFile ini(path);
    ini.set("zaro", "SyncPragma", "OFF");
    ini.write(path, 0644);
  }

  // Whether the statement is acknowledged. A dead connection is noticed by the first statement that meets it; when a
  // transaction is over, none is sent.
  bool acknowledges(const std::string& statement) {
    try {
      m_connection->executeSQL(statement.c_str(), KxDbConnect::SQL_TYPE_DEFAULT);
      return true;
    } catch (const char*) {
      if (m_dead && m_belief != Belief::Over) {
        m_dead = false;
        m_belief = m_belief == Belief::Open ? Belief::Over : m_belief;
        m_pending.clear();
      }
      return false;
    }
  }

  void begin() {
    if (m_belief == Belief::Open) {  // refused without being sent, so that nobody notices a dead connection
      EXPECT_THROW(m_connection->executeSQL("BEGIN", KxDbConnect::SQL_TYPE_DEFAULT), const char*);
      return;
    }
    const bool mayBegin = m_belief == Belief::None && !m_dead;
    const bool begun = acknowledges(home().dialect() == Dialect::SQLite ? "BEGIN IMMEDIATE" : "BEGIN");
    EXPECT_TRUE(begun || !mayBegin);
    EXPECT_FALSE(begun && m_belief == Belief::Over);
    m_belief = begun ? Belief::Open : m_belief;
  }

  void insert() {
    const bool works = m_belief != Belief::Over && !m_dead;
    const std::string id = std::to_string(++m_lastId);
    const bool inserted = acknowledges("INSERT INTO t VALUES(" + id + ")");
    EXPECT_EQ(inserted, works);
    if (inserted) {
      (m_belief == Belief::Open ? m_pending : m_stored).push_back(id);
    }
  }

  // SQLite rolls back. PostgreSQL does not run it under a savepoint of the driver's, so that the transaction is spoilt;
  // outside one the statement is refused without being sent, so there it is another.
  std::string fatalStatement() const {
    if (home().dialect() == Dialect::SQLite) {
      return "INSERT OR ROLLBACK INTO t VALUES(0)";
    }
    return m_belief == Belief::Open ? "ROLLBACK TO nowhere" : "SELECT nothing FROM nowhere";
  }

  void fail(const std::string& statement, Belief afterwards) {
    const bool dead = m_dead;
    EXPECT_FALSE(acknowledges(statement));
    if (!dead) {
      m_belief = afterwards;
    }
    if (m_belief == Belief::Over) {
      m_pending.clear();
    }
  }

  void commit() {
    const bool works = m_belief != Belief::Over && !m_dead;
    const bool committed = acknowledges("COMMIT");
    EXPECT_EQ(committed, works);
    if (committed) {
      m_stored.insert(m_stored.end(), m_pending.begin(), m_pending.end());
      m_belief = Belief::None;
    }
    m_pending.clear();
  }

  void failCommit() {
    const bool open = m_belief == Belief::Open && !m_dead;
    EXPECT_EQ(acknowledges("INSERT INTO child VALUES(-1)"), open) << "outside a transaction it is checked at once";
    EXPECT_EQ(acknowledges("COMMIT"), m_belief == Belief::None);
    if (open) {
      m_belief = Belief::Over;
    }
    m_pending.clear();
  }

  void rollBack() {
    const bool due = m_belief != Belief::None;
    const bool rolledBack = acknowledges("ROLLBACK");
    EXPECT_TRUE(rolledBack || !due);
    if (m_belief == Belief::Open) {
      m_dead = false;  // acknowledged all the same: the server has rolled back
    }
    m_belief = Belief::None;
    m_pending.clear();
  }

  void lose() {
    for (const int socket : socketsTo(zarotest::postgresqlServer()->port)) {
      if (m_observerSockets.count(socket) == 0) {
        shutdown(socket, SHUT_RDWR);
        m_dead = true;
      }
    }
  }

  Rows seen() const {
    Rows ids;
    for (const auto& row : m_observer->rows("SELECT id FROM t WHERE id>" + std::to_string(m_before) +
                                            " UNION ALL SELECT parent FROM child ORDER BY 1")) {
      ids.push_back(*row[0]);
    }
    return ids;
  }

  const Rows& expected() const { return m_stored; }

  std::unique_ptr<zaroruntime::SqlSession> m_observer;
  std::set<int> m_observerSockets;
  KxDataAccess m_pool;
  KxDbConnect* m_connection = nullptr;
  int m_before = 0;
  int m_lastId = 0;
  Rows m_stored, m_pending;
  Belief m_belief = Belief::None;
  bool m_dead = false;  // and nobody has noticed yet
};

// Calls `follow` with every order of so many steps, but for those that begin with a return or repeat one or a loss at
// once, since that changes nothing.
void eachOrder(const std::vector<Step>& steps, std::size_t length, std::vector<Step>& order,
               const std::function<void(const std::vector<Step>&)>& follow) {
  if (order.size() == length) {
    follow(order);
    return;
  }
  for (const Step step : steps) {
    const Step last = order.empty() ? Step::Return : order.back();
    if (step == last && (step == Step::Return || step == Step::Loss)) {
      continue;
    }
    order.push_back(step);
    eachOrder(steps, length, order, follow);
    order.pop_back();
  }
}

TEST_P(TransactionOrder, whatIsAcknowledgedIsWhatAnotherConnectionSees) {
  std::vector<Step> steps = {Step::Begin,  Step::Statement,     Step::FailingStatement, Step::FatalStatement,
                             Step::Commit, Step::FailingCommit, Step::Rollback,         Step::Return};
  if (home().dialect() == Dialect::PostgreSQL) {
    steps.push_back(Step::Loss);
  }
  std::vector<Step> order;
  int orders = 0;
  eachOrder(steps, length(), order, [&](const std::vector<Step>& next) {
    check(next);
    ++orders;
  });
  RecordProperty("orders", orders);
}

// Longer ones than all orders are followed in: the first failure of a transaction, and what its user does then.
constexpr std::string_view kLongerOrders[] = {
    "BSXC",    // a fatal failure; commit
    "BSXSC",   //                  insert, commit
    "BSXRS",   //                  rollback, insert
    "BSXPBC",  //                  return, begin, commit
    "BSESC",   // a failure that the transaction outlives; insert, commit
    "BSEXRS",  //                                          a fatal one, rollback, insert
    "BSBSC",   // a second begin; insert, commit
    "BSFSC",   // a failing commit; insert, commit
    "BSFBSC",  //                   begin, insert, commit
    "BSFRSC",  //                   rollback, insert, commit
    "BSFPBC",  //                   return, begin, commit
    "BLSC",    // a lost connection; insert, commit
    "BSLC",    //                    commit
    "BSLCRS",  //                    commit, rollback, insert
    "BSLSCS",  //                    insert, commit, insert
    "BSLRBC",  //                    rollback, begin, commit
    "BSLPBC",  //                    return, begin, commit
    "BSLFRS",  //                    a failing commit, rollback, insert
    "BSXLCS",  // a fatal failure and a lost connection; commit, insert
    "LBSC",    // one that was lost before; begin, insert, commit
    "BSCLSS",  // one that was lost after the commit; insert, insert
    "BSPSLC",  // a return in a transaction; insert, lost connection, commit
};

TEST_P(TransactionOrder, theSameHoldsInLongerOrders) {
  for (const std::string_view letters : kLongerOrders) {
    std::vector<Step> order;
    for (const char letter : letters) {
      order.push_back(static_cast<Step>(kLetters.find(letter)));
    }
    const bool loses = letters.find('L') != std::string_view::npos;
    if (!loses || home().dialect() == Dialect::PostgreSQL) {
      check(order);
    }
  }
}

ZARO_ON_EVERY_DATABASE(TransactionOrder);

}  // namespace
