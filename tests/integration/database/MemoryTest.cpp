// Memory that runs out at any allocation of a step: what is acknowledged is stored all the same, and nothing else.
#include <gtest/gtest.h>

#include <string>

#include "KxDataAccess.h"
#include "KxDbConnect.h"
#include "ZaroRuntime/LastFailure.h"
#include "support/FailingAllocations.h"
#include "support/TestInstallation.h"

// The parser of ini files loses its own memory when it runs out. The sanitizer asks the program for what to pass over.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
  return "leak:CSimpleIniTempl\n";
}

namespace {

using zarotest::Dialect;

class Memory : public zarotest::OnEveryDatabase {
 protected:
  void SetUp() override {
    OnEveryDatabase::SetUp();
    if (!IsSkipped()) {
      home().sql("CREATE TABLE t(a INTEGER PRIMARY KEY)");
      const auto& settings = home().settings();
      m_pool.init(home().initString().c_str(), 1, settings.dataSource.c_str(), settings.user.c_str(),
                  settings.password.c_str());
    }
  }

  // Whether the statement, with what it answers, is acknowledged.
  static bool acknowledges(KxDbConnect* connection, const std::string& statement) {
    try {
      connection->executeSQL(statement.c_str(), KxDbConnect::SQL_TYPE_DEFAULT);
      while (connection->fetchNextRow() == 0) {
      }
      return true;
    } catch (const char*) {
      return false;
    }
  }

  // A transaction that runs `step`, at whose allocation number `failing` memory runs out, between two others. False
  // once the step allocates less.
  bool follow(const std::string& step, int failing) {
    home().sql("DELETE FROM t");
    KxDbConnect* const connection = m_pool.getConnect();
    EXPECT_TRUE(acknowledges(connection, home().dialect() == Dialect::SQLite ? "BEGIN IMMEDIATE" : "BEGIN"));
    EXPECT_TRUE(acknowledges(connection, "INSERT INTO t VALUES(1)"));
    failAllocation(failing);
    const bool stepped = acknowledges(connection, step);
    const bool reached = failAllocation(0);
    const bool inDoubt = zaroruntime::lastFailureKind() == zaroruntime::FailureKind::CommitInDoubt && !stepped;
    const bool ended = step == "COMMIT" && stepped;
    const bool inserted = acknowledges(connection, "INSERT INTO t VALUES(3)");
    const bool committed = acknowledges(connection, "COMMIT");
    m_pool.returnConnect(connection);
    const std::string rows = home().value("SELECT count(*) FROM t");
    if (!inDoubt) {
      EXPECT_EQ(rows, ended || committed ? std::to_string(1 + (inserted ? 1 : 0) + (step[0] == 'I' && stepped ? 1 : 0))
                                         : "0");
    } else {
      EXPECT_FALSE(inserted || committed);
    }
    return reached;
  }

  KxDataAccess m_pool;
};

TEST_P(Memory, whatIsAcknowledgedIsStoredAndNothingElse) {
  const std::string fatal =
      home().dialect() == Dialect::SQLite ? "INSERT OR ROLLBACK INTO t VALUES(1)" : "ROLLBACK TO nowhere";
  for (const std::string& step :
       {std::string("INSERT INTO t VALUES(2)"), std::string("SELECT a FROM t"), fatal, std::string("COMMIT")}) {
    int failing = 1;
    while (!HasFailure() && follow(step, failing)) {
      ++failing;
    }
    EXPECT_FALSE(HasFailure()) << step << " at allocation " << failing;
    EXPECT_GT(failing, 1) << step;
  }
}

TEST_P(Memory, connectionIsLentResetOrNew) {
  const bool sqlite = home().dialect() == Dialect::SQLite;
  bool reached = true;
  for (int failing = 1; reached && !HasFailure(); ++failing) {
    KxDbConnect* connection = m_pool.getConnect();
    EXPECT_TRUE(acknowledges(connection, sqlite ? "PRAGMA query_only=1" : "SET default_transaction_read_only=on"));
    m_pool.returnConnect(connection);
    connection = nullptr;
    failAllocation(failing);
    try {
      connection = m_pool.getConnect();
    } catch (const char*) {
    }
    reached = failAllocation(0);
    connection = connection != nullptr ? connection : m_pool.getConnect();
    EXPECT_TRUE(acknowledges(connection, "INSERT INTO t VALUES(" + std::to_string(failing) + ")")) << failing;
    m_pool.returnConnect(connection);
  }
}

ZARO_ON_EVERY_DATABASE(Memory);

}  // namespace
