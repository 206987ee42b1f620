// The connection pool, on each database.
#include <gmock/gmock.h>
#include <sql.h>
#include <sqlext.h>

#include <filesystem>
#include <functional>
#include <future>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "KxDataAccess.h"
#include "KxDbConnect.h"
#include "ZaroRuntime/ConnectionPool.h"
#include "ZaroRuntime/IniFile.h"
#include "support/DriverManager.h"
#include "support/TestInstallation.h"
#include "support/Thrown.h"

namespace {

using testing::HasSubstr;
using zarotest::Dialect;
using zarotest::thrownBy;

class Pool : public zarotest::OnEveryDatabase {
 protected:
  void open(int size, KxDataAccess& pool) {
    const auto& settings = home().settings();
    pool.init(home().initString().c_str(), size, settings.dataSource.c_str(), settings.user.c_str(),
              settings.password.c_str());
  }
  void open(int size) { open(size, m_pool); }

  void connect(KxDbConnect& connection) {
    const auto& settings = home().settings();
    connection.connect(home().initString().c_str(), settings.dataSource.c_str(), settings.user.c_str(),
                       settings.password.c_str());
  }

  static void execute(KxDbConnect* connection, const std::string& statement) {
    connection->executeSQL(statement.c_str(), KxDbConnect::SQL_TYPE_DEFAULT);
  }

  static std::string first(KxDbConnect* connection, const std::string& query) {
    execute(connection, query);
    const char* value = connection->fetchNextRow() == 0 ? connection->getColVal("v") : nullptr;
    return value != nullptr ? value : "nothing";
  }

  std::string begin() { return home().dialect() == Dialect::SQLite ? "BEGIN IMMEDIATE" : "BEGIN"; }

  KxDataAccess m_pool;
};

TEST_P(Pool, connectionsAreUsedAgain) {
  open(2);
  KxDbConnect* first = m_pool.getConnect();
  m_pool.returnConnect(first);
  EXPECT_EQ(m_pool.getConnect(), first);
  m_pool.returnConnect(first);
}

TEST_P(Pool, sizeBoundsWhatIsKept) {
  open(2);
  std::vector<KxDbConnect*> loans;
  for (int count = 0; count < 5; ++count) {
    loans.push_back(m_pool.getConnect());  // a thread that holds one does not wait for itself
    EXPECT_EQ(Pool::first(loans.back(), "SELECT 1 AS \"v\""), "1");
  }
  EXPECT_EQ(std::set<KxDbConnect*>(loans.begin(), loans.end()).size(), 5u);
  for (KxDbConnect* loan : loans) {
    m_pool.returnConnect(loan);
  }
  if (home().dialect() == Dialect::PostgreSQL) {
    // The server takes its time to end a session that was closed.
    std::string sessions;
    for (int look = 0; look < 200 && sessions != "2"; ++look) {
      sessions = home().value(
          "SELECT count(*) FROM pg_stat_activity WHERE datname=current_database() AND pid<>pg_backend_pid() "
          "AND backend_type='client backend'");
      std::this_thread::sleep_for(std::chrono::milliseconds(sessions == "2" ? 0 : 50));
    }
    EXPECT_EQ(sessions, "2");
  }
}

TEST_P(Pool, threadWithoutAConnectionWaitsForOne) {
  open(1);
  KxDbConnect* mine = m_pool.getConnect();
  std::promise<void> started;
  auto other = std::async(std::launch::async, [&] {
    started.set_value();
    KxDbConnect* theirs = m_pool.getConnect();
    m_pool.returnConnect(theirs);
    return theirs;
  });
  started.get_future().wait();
  EXPECT_EQ(other.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  m_pool.returnConnect(mine);
  EXPECT_EQ(other.get(), mine);
}

TEST_P(Pool, openTransactionIsRolledBackOnReturn) {
  open(1);
  KxDbConnect* connection = m_pool.getConnect();
  execute(connection, "CREATE TABLE t(a INTEGER)");
  execute(connection, begin());
  execute(connection, "INSERT INTO t VALUES(1)");
  m_pool.returnConnect(connection);
  EXPECT_EQ(home().value("SELECT count(*) FROM t"), "0");
  connection = m_pool.getConnect();
  execute(connection, begin());
  execute(connection, "COMMIT");
  m_pool.returnConnect(connection);
  EXPECT_EQ(home().value("SELECT count(*) FROM t"), "0") << "not committed by its next user either";
}

TEST_P(Pool, transactionsThatWouldOutliveTheirLoanAreRefused) {
  open(1);
  KxDbConnect* connection = m_pool.getConnect();
  const auto refusal = [&](const char* statement) { return thrownBy([&] { execute(connection, statement); }); };
  EXPECT_THAT(refusal("SAVEPOINT s"), HasSubstr("a savepoint needs a transaction"));
  execute(connection, begin());
  EXPECT_THAT(refusal("COMMIT AND CHAIN"), HasSubstr("not supported"));
  EXPECT_THAT(refusal("PREPARE TRANSACTION 'x'"), HasSubstr("not supported"));
  execute(connection, "SAVEPOINT s");
  execute(connection, "ROLLBACK TO SAVEPOINT s");
  execute(connection, "COMMIT");
  m_pool.returnConnect(connection);
}

TEST_P(Pool, nextUserSeesNothingOfTheLastResult) {
  open(1);
  KxDbConnect* connection = m_pool.getConnect();
  execute(connection, "SELECT 1 AS \"v\"");
  m_pool.returnConnect(connection);
  connection = m_pool.getConnect();
  EXPECT_EQ(connection->fetchNextRow(), -1);
  EXPECT_EQ(connection->getColVal("v"), nullptr);
  m_pool.returnConnect(connection);
}

// What one user of a connection does, and a query with which the next would notice, and its answer to who does not.
struct RemainsCase {
  const char* label;
  std::vector<const char*> statements;
  const char* query;
  const char* answer;
};

const RemainsCase kSqliteRemains[] = {
    {"read-only mode", {"PRAGMA query_only=1"}, "SELECT query_only AS \"v\" FROM pragma_query_only", "0"},
    {"foreign keys off", {"PRAGMA foreign_keys=0"}, "SELECT foreign_keys AS \"v\" FROM pragma_foreign_keys", "1"},
    {"temporary table",
     {"CREATE TEMPORARY TABLE administrator AS SELECT 'mallory' AS name"},
     "SELECT count(*) AS \"v\" FROM administrator",
     "0"},
    {"temporary view", {"CREATE VIEW temp.administrator AS SELECT 1"}, "SELECT count(*) AS \"v\" FROM administrator", "0"},
    {"further database", {"ATTACH ':memory:' AS more"}, "SELECT count(*) AS \"v\" FROM pragma_database_list", "1"},
    {"temporary table in a transaction",
     {"BEGIN", "CREATE TEMP TABLE administrator AS SELECT 'mallory' AS name", "COMMIT"},
     "SELECT count(*) AS \"v\" FROM administrator",
     "0"},
};

const RemainsCase kPostgresqlRemains[] = {
    {"backslashes that escape",
     {"SET standard_conforming_strings=off"},
     "SELECT current_setting('standard_conforming_strings') AS \"v\"",
     "on"},
    {"temporary table",
     {"CREATE TEMPORARY TABLE administrator AS SELECT 'mallory' AS name"},
     "SELECT count(*) AS \"v\" FROM administrator",
     "0"},
    {"read-only mode",
     {"SET SESSION CHARACTERISTICS AS TRANSACTION READ ONLY"},
     "SELECT current_setting('transaction_read_only') AS \"v\"",
     "off"},
    {"advisory lock", {"SELECT pg_advisory_lock(7)"}, "SELECT count(*) AS \"v\" FROM pg_locks WHERE locktype='advisory'", "0"},
    {"search path", {"SET search_path TO pg_catalog"}, "SELECT count(*) AS \"v\" FROM administrator", "0"},
    {"role", {"SET ROLE pg_monitor"}, "SELECT (current_user=session_user)::text AS \"v\"", "true"},
    {"session user", {"SET SESSION AUTHORIZATION pg_monitor"}, "SELECT (current_user LIKE 'pg_%')::text AS \"v\"", "false"},
    {"dates in another form", {"SET DateStyle TO German"}, "SELECT DATE '2026-11-21'::text AS \"v\"", "2026-11-21"},
    {"encoding", {"SET client_encoding TO LATIN1"}, "SELECT current_setting('client_encoding') AS \"v\"", "UTF8"},
    {"variable of its own", {"SET zaro.tenant='mallory'"}, "SELECT current_setting('zaro.tenant',true) AS \"v\"", ""},
    {"prepared statement", {"PREPARE mine AS SELECT 1"}, "SELECT count(*) AS \"v\" FROM pg_prepared_statements", "0"},
    {"cursor",
     {"DECLARE mine CURSOR WITH HOLD FOR SELECT 1"},
     "SELECT count(*) AS \"v\" FROM pg_cursors WHERE name='mine'",
     "0"},
    {"channel", {"LISTEN mine"}, "SELECT count(*) AS \"v\" FROM pg_listening_channels()", "0"},
};

TEST_P(Pool, nothingOfASessionReachesItsNextUser) {
  open(1);
  const bool sqlite = home().dialect() == Dialect::SQLite;
  const std::vector<RemainsCase> cases =
      sqlite ? std::vector<RemainsCase>(std::begin(kSqliteRemains), std::end(kSqliteRemains))
             : std::vector<RemainsCase>(std::begin(kPostgresqlRemains), std::end(kPostgresqlRemains));
  for (const RemainsCase& test : cases) {
    KxDbConnect* connection = m_pool.getConnect();
    for (const char* statement : test.statements) {
      execute(connection, statement);
    }
    m_pool.returnConnect(connection);
    connection = m_pool.getConnect();
    EXPECT_EQ(first(connection, test.query), test.answer) << test.label;
    m_pool.returnConnect(connection);
  }
}

TEST_P(Pool, whatWasDoneThroughTheStatementHandleEndsWithTheLoan) {
  home().sql("CREATE TABLE t(a INTEGER)");
  open(1);
  KxDbConnect* connection = m_pool.getConnect();
  for (const char* text : {"BEGIN", "INSERT INTO t VALUES(1)"}) {
    std::string statement = text;
    ASSERT_TRUE(SQL_SUCCEEDED(
        SQLExecDirect(connection->getStmtHandle(), reinterpret_cast<SQLCHAR*>(statement.data()), SQL_NTS)));
  }
  SQLSetStmtAttr(connection->getStmtHandle(), SQL_ATTR_MAX_ROWS, reinterpret_cast<SQLPOINTER>(1), 0);
  m_pool.returnConnect(connection);
  connection = m_pool.getConnect();
  execute(connection, "INSERT INTO t VALUES(2)");
  EXPECT_EQ(home().value("SELECT min(a) FROM t"), "2");
  SQLULEN rows = 1;
  SQLGetStmtAttr(connection->getStmtHandle(), SQL_ATTR_MAX_ROWS, &rows, 0, nullptr);
  EXPECT_EQ(rows, 0u);
  m_pool.returnConnect(connection);
}

TEST_P(Pool, rebuildingWorksWithConnectionsOnLoan) {
  open(2);
  // Sessions of the server tell connections apart; the embedded database has none.
  const std::string session =
      home().dialect() == Dialect::PostgreSQL ? "SELECT pg_backend_pid() AS \"v\"" : "SELECT 1 AS \"v\"";
  KxDbConnect* loan = m_pool.getConnect();
  KxDbConnect* idle = m_pool.getConnect();
  const std::set<std::string> before = {first(loan, session), first(idle, session)};
  m_pool.returnConnect(idle);
  EXPECT_EQ(m_pool.reinit(), 0);
  EXPECT_EQ(before.count(first(loan, session)), 1u) << "still its borrower's";
  m_pool.returnConnect(loan);
  KxDbConnect* one = m_pool.getConnect();
  KxDbConnect* two = m_pool.getConnect();
  const std::set<std::string> after = {first(one, session), first(two, session)};
  if (home().dialect() == Dialect::PostgreSQL) {
    for (const std::string& known : after) {
      EXPECT_EQ(before.count(known), 0u);
    }
    EXPECT_EQ(after.size(), 2u);
  }
  m_pool.returnConnect(one);
  m_pool.returnConnect(two);
}

TEST_P(Pool, closingLeavesNothingOpenAndAPoolThatConnectsAnew) {
  const auto isOpen = [&] {
    return GetParam() == Dialect::SQLite
               ? std::filesystem::exists(home().directory().path(home().settings().database + "-wal"))
               : home().value(
                     "SELECT count(*) FROM pg_stat_activity WHERE datname = current_database() AND pid <> "
                     "pg_backend_pid() AND backend_type = 'client backend'") != "0";
  };
  open(2);
  KxDbConnect* onLoan = m_pool.getConnect();
  m_pool.returnConnect(m_pool.getConnect());
  execute(onLoan, "INSERT INTO administrator (name) VALUES ('alice')");
  EXPECT_TRUE(isOpen());
  zaroruntime::closePools();
  EXPECT_EQ(first(onLoan, "SELECT count(*) AS \"v\" FROM administrator"), "1") << "a loan lasts until it comes back";
  m_pool.returnConnect(onLoan);
  for (int trial = 0; trial < 1000 && isOpen(); ++trial) {  // the server takes a moment to notice
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  EXPECT_FALSE(isOpen());
  KxDbConnect* again = m_pool.getConnect();
  EXPECT_EQ(first(again, "SELECT 1 AS \"v\""), "1");
  m_pool.returnConnect(again);
}

TEST_P(Pool, rebuildingTellsWhetherTheDatabaseIsThere) {
  open(1);
  const std::string path = home().directory().path("config/odbc.ini");
  const std::string text = zarotest::readFile(path);
  home().directory().write("config/odbc.ini", "[zaro]\nDriver=libnosuchdriver.so\n");
  testing::internal::CaptureStderr();
  EXPECT_EQ(m_pool.reinit(), 1);
  EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("the pool cannot be rebuilt: data source zaro"));
  home().directory().write("config/odbc.ini", text);
  EXPECT_EQ(m_pool.reinit(), 0);
}

TEST_P(Pool, failedOpeningIsThrownAndThePoolStillServes) {
  const std::string text = zarotest::readFile(home().directory().path("config/odbc.ini"));
  home().directory().write("config/odbc.ini", "[zaro]\nDriver=libnosuchdriver.so\n");
  EXPECT_THAT(thrownBy([&] { open(1); }), HasSubstr("libnosuchdriver.so"));
  KxDbConnect* connection = m_pool.getConnect();
  ASSERT_NE(connection, nullptr);
  EXPECT_THAT(thrownBy([&] { execute(connection, "SELECT 1"); }), HasSubstr("libnosuchdriver.so"));
  home().directory().write("config/odbc.ini", text);
  EXPECT_EQ(first(connection, "SELECT 1 AS \"v\""), "1") << "and recovers without a new loan";
  m_pool.returnConnect(connection);
}

TEST_P(Pool, unusableSizesAndSecondOpeningAreRefused) {
  EXPECT_THAT(thrownBy([&] { open(0); }), HasSubstr("a connection pool needs a size of at least 1, not 0"));
  EXPECT_THAT(thrownBy([&] { open(-5); }), HasSubstr("not -5"));
  EXPECT_NE(m_pool.reinit(), 0);
  KxDbConnect* connection = m_pool.getConnect();
  EXPECT_THAT(thrownBy([&] { execute(connection, "SELECT 1"); }), HasSubstr("not connected"));
  m_pool.returnConnect(connection);
  open(1);
  EXPECT_THAT(thrownBy([&] { open(1); }), HasSubstr("open already"));
}

TEST_P(Pool, oddReturnsDoNoHarm) {
  open(2);
  m_pool.returnConnect(nullptr);
  m_pool.returnConnect(new KxDbConnect);  // made before there was a pool: the pool closes it
  KxDbConnect* connection = m_pool.getConnect();
  m_pool.returnConnect(connection);
  testing::internal::CaptureStderr();
  m_pool.returnConnect(connection);
  EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("a connection was returned twice"));
  KxDbConnect* one = m_pool.getConnect();
  KxDbConnect* two = m_pool.getConnect();
  EXPECT_NE(one, two);
  m_pool.returnConnect(one);
  m_pool.returnConnect(two);
}

TEST_P(Pool, connectionsMayComeBackOnAnotherThread) {
  open(1);
  KxDbConnect* connection = m_pool.getConnect();
  std::thread([&] { m_pool.returnConnect(connection); }).join();
  EXPECT_EQ(m_pool.getConnect(), connection);
  m_pool.returnConnect(connection);
}

// Connections of a borrower; the pool never made the last. One that was returned is null.
struct Loans {
  KxDbConnect* pooled;
  KxDbConnect* aboveSize;
  KxDbConnect* foreign;
};

void giveBack(KxDataAccess& pool, KxDbConnect*& loan) {
  pool.returnConnect(std::exchange(loan, nullptr));
}

struct ClosingCase {
  const char* label;
  bool isRebuilt;  // the pool, before anything is closed
  std::function<void(KxDataAccess& pool, Loans& loans)> close;
};

const ClosingCase kClosingCases[] = {
    {"return above the size", false, [](KxDataAccess& pool, Loans& loans) { giveBack(pool, loans.aboveSize); }},
    {"return to a rebuilt pool", true, [](KxDataAccess& pool, Loans& loans) { giveBack(pool, loans.pooled); }},
    {"return of a foreign connection", false, [](KxDataAccess& pool, Loans& loans) { giveBack(pool, loans.foreign); }},
    {"return of a connection whose handle was given", false,
     [](KxDataAccess& pool, Loans& loans) {
       loans.pooled->getStmtHandle();
       giveBack(pool, loans.pooled);
     }},
    {"rebuilding", false, [](KxDataAccess& pool, Loans&) { pool.reinit(); }},
    {"closing of all pools", false, [](KxDataAccess&, Loans&) { zaroruntime::closePools(); }},
};

// A close may wait for the network; meanwhile another thread borrows and opens connections.
TEST_P(Pool, closingKeepsNobodyFromBorrowing) {
  for (const ClosingCase& test : kClosingCases) {
    KxDataAccess pool;
    open(2, pool);
    Loans loans = {pool.getConnect(), nullptr, new KxDbConnect};
    KxDbConnect* const idle = pool.getConnect();
    loans.aboveSize = pool.getConnect();
    pool.returnConnect(idle);
    connect(*loans.foreign);
    if (test.isRebuilt) {
      pool.reinit();
    }

    std::promise<void> closing, borrowed;
    std::thread closer([&] {
      bool first = true;
      zarotest::driverManagerHooks().beforeDisconnect = [&] {
        if (std::exchange(first, false)) {
          closing.set_value();
          borrowed.get_future().wait();
        }
      };
      test.close(pool, loans);
      if (first) {
        ADD_FAILURE() << test.label << " closed nothing";
        closing.set_value();
      }
    });
    closing.get_future().wait();
    auto borrower = std::async(std::launch::async, [&] {
      for (KxDbConnect* connection : {pool.getConnect(), pool.getConnect()}) {
        EXPECT_EQ(first(connection, "SELECT 1 AS \"v\""), "1") << test.label;
        pool.returnConnect(connection);
      }
    });
    EXPECT_EQ(borrower.wait_for(std::chrono::minutes(1)), std::future_status::ready) << test.label;
    borrowed.set_value();
    closer.join();
    borrower.wait();
    for (KxDbConnect* loan : {loans.pooled, loans.aboveSize, loans.foreign}) {
      pool.returnConnect(loan);
    }
  }
}

ZARO_ON_EVERY_DATABASE(Pool);

// How long is waited is the same on every database.
class SqlitePool : public Pool {};

TEST_P(SqlitePool, waitIsBounded) {
  open(1);
  KxDbConnect* mine = m_pool.getConnect();
  auto other = std::async(std::launch::async, [&] {
    KxDbConnect* theirs = m_pool.getConnect();
    const std::string answer = first(theirs, "SELECT 1 AS \"v\"");
    m_pool.returnConnect(theirs);
    return theirs == mine ? "the one on loan" : answer;
  });
  EXPECT_EQ(other.get(), "1");
  m_pool.returnConnect(mine);
}

INSTANTIATE_TEST_SUITE_P(, SqlitePool, testing::Values(Dialect::SQLite), zarotest::dialectTestName);

class PostgresqlPool : public Pool {};

TEST_P(PostgresqlPool, deadConnectionIsReplacedAtCheckout) {
  open(3);
  std::vector<KxDbConnect*> loans = {m_pool.getConnect(), m_pool.getConnect(), m_pool.getConnect()};
  std::set<std::string> dead;
  for (KxDbConnect* loan : loans) {
    dead.insert(first(loan, "SELECT pg_backend_pid() AS \"v\""));
    m_pool.returnConnect(loan);
  }
  home().sql(
      "SELECT pg_terminate_backend(pid, 5000) FROM pg_stat_activity WHERE datname=current_database() AND pid<>pg_backend_pid()");
  for (KxDbConnect*& loan : loans) {
    loan = m_pool.getConnect();
    execute(loan, "BEGIN");  // the first statement works at once
    EXPECT_EQ(dead.count(first(loan, "SELECT pg_backend_pid() AS \"v\"")), 0u);
    execute(loan, "COMMIT");
  }
  for (KxDbConnect* loan : loans) {
    m_pool.returnConnect(loan);
  }
}

TEST_P(PostgresqlPool, whatTheDataSourceHasSetOutlastsTheReset) {
  const std::string path = home().directory().path("config/odbc.ini");
  zaroruntime::IniFile ini(path);
  ini.set("zaro", "ConnSettings", "SET search_path TO zaro_own,public;SET zaro.tenant='it''s 7'");
  ini.write(path, 0644);
  home().sql("ALTER DATABASE " + home().settings().database + " SET role TO pg_monitor");
  open(1);
  std::string session;
  for (int loan = 0; loan < 3; ++loan) {
    KxDbConnect* connection = m_pool.getConnect();
    EXPECT_EQ(first(connection, "SELECT current_setting('search_path') AS \"v\""), "zaro_own, public");
    EXPECT_EQ(first(connection, "SELECT current_setting('zaro.tenant') AS \"v\""), "it's 7");
    EXPECT_EQ(first(connection, "SELECT current_user AS \"v\""), "pg_monitor");
    const std::string now = first(connection, "SELECT pg_backend_pid() AS \"v\"");
    EXPECT_TRUE(session.empty() || now == session) << "it is the same connection, reset";
    session = now;
    m_pool.returnConnect(connection);
  }
}

TEST_P(PostgresqlPool, roleOfTheDatabaseOutlastsTheReset) {
  home().sql("ALTER DATABASE " + home().settings().database + " SET role TO pg_monitor");
  open(1);
  for (int loan = 0; loan < 2; ++loan) {
    KxDbConnect* connection = m_pool.getConnect();
    EXPECT_EQ(first(connection, "SELECT current_user AS \"v\""), "pg_monitor") << loan;
    m_pool.returnConnect(connection);
  }
}

TEST_P(PostgresqlPool, commentInTheDataSourceDoesNotHideOurOwnSettings) {
  const std::string path = home().directory().path("config/odbc.ini");
  zaroruntime::IniFile ini(path);
  ini.set("zaro", "ConnSettings", "SET work_mem='5MB' -- for the reports");
  ini.write(path, 0644);
  home().sql("ALTER ROLE " + home().settings().user + " IN DATABASE " + home().settings().database +
             " SET standard_conforming_strings=off");
  open(1);
  for (int loan = 0; loan < 2; ++loan) {
    KxDbConnect* connection = m_pool.getConnect();
    EXPECT_EQ(first(connection, "SELECT current_setting('standard_conforming_strings') AS \"v\""), "on") << loan;
    EXPECT_EQ(first(connection, "SELECT current_setting('work_mem') AS \"v\""), "5MB") << loan;
    m_pool.returnConnect(connection);
  }
}

INSTANTIATE_TEST_SUITE_P(, PostgresqlPool, testing::Values(Dialect::PostgreSQL), zarotest::dialectTestName);

}  // namespace
