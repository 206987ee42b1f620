// Transactions: begun, committed, rolled back, and what happens to those left open.
#include <memory>
#include <string>
#include <vector>

#include "RdbmsInterface.h"
#include "scripted/Prelude.h"

namespace {

using ZARO::RdbmsInterface;

constexpr const char* kStart = "ui_StartTransaction.sql";
constexpr const char* kCommit = "ui_CommitTransaction.sql";
constexpr const char* kRollback = "ui_RollbackTransaction.sql";

class RdbmsTransaction : public PlatformTest {
 protected:
  // Statements executed so far.
  static std::vector<std::string> executed() { return platform().database.statements(); }

  std::unique_ptr<RdbmsInterface> m_db = std::make_unique<RdbmsInterface>();
};

// --- What runs when ---

TEST_F(RdbmsTransaction, startAndCommitRunTheirStatements) {
  EXPECT_TRUE(m_db->startTransaction());
  EXPECT_TRUE(m_db->commitTransaction());
  m_db.reset();
  EXPECT_THAT(executed(), ElementsAre(kStart, kCommit));
  EXPECT_THAT(platform().log.lines(), IsEmpty());
}

TEST_F(RdbmsTransaction, isNotNested) {
  EXPECT_TRUE(m_db->startTransaction());
  EXPECT_TRUE(m_db->startTransaction());
  EXPECT_THAT(executed(), ElementsAre(kStart));
  EXPECT_EQ(platform().statements.loaded().size(), 1u);
  EXPECT_TRUE(m_db->commitTransaction());
  EXPECT_TRUE(m_db->startTransaction());
  EXPECT_TRUE(m_db->commitTransaction());
  EXPECT_THAT(executed(), ElementsAre(kStart, kCommit, kStart, kCommit));
}

TEST_F(RdbmsTransaction, commitsWithoutAStart) {
  EXPECT_TRUE(m_db->commitTransaction());
  EXPECT_TRUE(m_db->commitTransaction());
  m_db.reset();
  EXPECT_THAT(executed(), ElementsAre(kCommit, kCommit));
}

TEST_F(RdbmsTransaction, isRolledBackByTheDestructor) {
  EXPECT_TRUE(m_db->startTransaction());
  m_db.reset();
  EXPECT_THAT(executed(), ElementsAre(kStart, kRollback));
  EXPECT_EQ(platform().calls.all().back(), "~KxDbConnect#1()");
}

TEST_F(RdbmsTransaction, destructorRunsNothingWithoutOne) {
  m_db.reset();
  EXPECT_THAT(executed(), IsEmpty());
  EXPECT_THAT(platform().statements.loaded(), IsEmpty());
}

TEST_F(RdbmsTransaction, isRolledBackAfterAFailedCommit) {
  EXPECT_TRUE(m_db->startTransaction());
  platform().faults.throwText(Point::Execute, "deadlock");
  EXPECT_FALSE(m_db->commitTransaction());
  m_db.reset();
  EXPECT_THAT(executed(), ElementsAre(kStart, kRollback));
}

TEST_F(RdbmsTransaction, mayBeCommittedAgainAfterAFailedCommit) {
  EXPECT_TRUE(m_db->startTransaction());
  platform().faults.throwText(Point::Execute, "deadlock");
  EXPECT_FALSE(m_db->commitTransaction());
  EXPECT_TRUE(m_db->startTransaction());  // still open
  EXPECT_TRUE(m_db->commitTransaction());
  m_db.reset();
  EXPECT_THAT(executed(), ElementsAre(kStart, kCommit));
}

TEST_F(RdbmsTransaction, isNotOpenAfterAFailedCommitWithoutAStart) {
  platform().faults.throwText(Point::Execute, "deadlock");
  EXPECT_FALSE(m_db->commitTransaction());
  m_db.reset();
  EXPECT_THAT(executed(), IsEmpty());
}

TEST_F(RdbmsTransaction, isNotOpenAfterAFailedStart) {
  platform().faults.throwText(Point::Execute, "locked");
  EXPECT_FALSE(m_db->startTransaction());
  EXPECT_TRUE(m_db->startTransaction());
  EXPECT_THAT(executed(), ElementsAre(kStart));
  EXPECT_TRUE(m_db->commitTransaction());
  platform().faults.throwText(Point::Execute, "locked");
  EXPECT_FALSE(m_db->startTransaction());
  m_db.reset();
  EXPECT_THAT(executed(), ElementsAre(kStart, kCommit));
}

TEST_F(RdbmsTransaction, statementsAreLoadedIntoBuffersOf256Bytes) {
  m_db->startTransaction();
  m_db->commitTransaction();
  m_db->startTransaction();
  m_db.reset();
  ASSERT_EQ(platform().statements.loaded().size(), 4u);
  for (const scripted::LoadedStatement& statement : platform().statements.loaded()) {
    EXPECT_EQ(statement.bufferSize, 256);
    EXPECT_THAT(statement.arguments, IsEmpty());
  }
}

TEST_F(RdbmsTransaction, callsComeInOrder) {
  platform().environment.set("ZARO_DB_TYPE", "mssql");
  platform().calls.clear();
  m_db->startTransaction();
  m_db->commitTransaction();
  EXPECT_THAT(platform().calls.all(),
              ElementsAre("KxSqlLoader(\"\")", "KxSqlLoader.loadSQL(256, \"ui_StartTransaction.sql\")",
                          "KxDbConnect#1.executeSQL(\"ui_StartTransaction.sql\", 1)", "KxSqlLoader(\"\")",
                          "KxSqlLoader.loadSQL(256, \"ui_CommitTransaction.sql\")",
                          "KxDbConnect#1.executeSQL(\"ui_CommitTransaction.sql\", 1)"));
}

TEST_F(RdbmsTransaction, longestStatementHas255Characters) {
  const std::string longest = std::string(255, 'x');
  platform().database.reply(longest, Reply());
  platform().statements.setText(kStart, longest);
  EXPECT_TRUE(m_db->startTransaction());
  platform().statements.setText(kCommit, longest + "x");
  EXPECT_FALSE(m_db->commitTransaction());
  EXPECT_EQ(
      platform().log.lines(),
      LogLines{error(
          "RdbmsInterface::commitTransaction: Exception \"ui_CommitTransaction.sql does not fit into 256 bytes\" thrown for statement ")});
}

// --- Failures ---

enum class Operation { Start, Commit, Rollback };

struct FailureCase {
  const char* label;
  Operation operation;
  Point point;
  const char* wantLog;
};

const FailureCase kFailureCases[] = {
    {"start: loader", Operation::Start, Point::LoaderMade,
     "RdbmsInterface::startTransaction: Exception \"why\" thrown for statement "},
    {"start: load", Operation::Start, Point::Load,
     "RdbmsInterface::startTransaction: Exception \"why\" thrown for statement "},
    {"start: load half way", Operation::Start, Point::LoadAfterWrite,
     "RdbmsInterface::startTransaction: Exception \"why\" thrown for statement "},
    {"start: execute", Operation::Start, Point::Execute,
     "RdbmsInterface::startTransaction: Exception \"why\" thrown for statement ui_StartTransaction.sql"},
    {"commit: loader", Operation::Commit, Point::LoaderMade,
     "RdbmsInterface::commitTransaction: Exception \"why\" thrown for statement "},
    {"commit: load", Operation::Commit, Point::Load,
     "RdbmsInterface::commitTransaction: Exception \"why\" thrown for statement "},
    {"commit: load half way", Operation::Commit, Point::LoadAfterWrite,
     "RdbmsInterface::commitTransaction: Exception \"why\" thrown for statement "},
    {"commit: execute", Operation::Commit, Point::Execute,
     "RdbmsInterface::commitTransaction: Exception \"why\" thrown for statement ui_CommitTransaction.sql"},
    {"rollback: loader", Operation::Rollback, Point::LoaderMade,
     "RdbmsInterface::_rollbackTransaction: Exception \"why\" thrown for statement "},
    {"rollback: load", Operation::Rollback, Point::Load,
     "RdbmsInterface::_rollbackTransaction: Exception \"why\" thrown for statement "},
    {"rollback: load half way", Operation::Rollback, Point::LoadAfterWrite,
     "RdbmsInterface::_rollbackTransaction: Exception \"why\" thrown for statement "},
    {"rollback: execute", Operation::Rollback, Point::Execute,
     "RdbmsInterface::_rollbackTransaction: Exception \"why\" thrown for statement ui_RollbackTransaction.sql"},
};

class FailingTransaction : public PlatformTest {
 protected:
  // Plans the failure for the operation alone and runs it.
  template <typename Plan>
  static void run(Operation operation, Plan plan) {
    RdbmsInterface db;
    if (operation == Operation::Start) {
      plan();
      EXPECT_FALSE(db.startTransaction());
      return;
    }
    ASSERT_TRUE(db.startTransaction());
    plan();
    if (operation == Operation::Commit) {
      EXPECT_FALSE(db.commitTransaction());
      platform().faults.clear();
    }
  }
};

TEST_F(FailingTransaction, logsTheThrownTextAndTheStatement) {
  for (const FailureCase& c : kFailureCases) {
    SCOPED_TRACE(c.label);
    platform().reset();
    run(c.operation, [&] { platform().faults.throwText(c.point, "why"); });
    EXPECT_EQ(platform().log.lines(), LogLines{error(c.wantLog)});
    EXPECT_EQ(platform().database.openConnections(), 0);
  }
}

TEST_F(FailingTransaction, letsOtherExceptionsPass) {
  for (const FailureCase& c : kFailureCases) {
    if (c.operation == Operation::Rollback) {
      continue;  // a destructor has nowhere to let them pass to
    }
    SCOPED_TRACE(c.label);
    platform().reset();
    RdbmsInterface db;
    platform().faults.throwOther(c.point);
    if (c.operation == Operation::Start) {
      EXPECT_THROW(db.startTransaction(), OtherFailure);
    } else {
      EXPECT_THROW(db.commitTransaction(), OtherFailure);
    }
    EXPECT_THAT(platform().log.lines(), IsEmpty());
  }
}

TEST_F(FailingTransaction, failsWithoutItsStatementFile) {
  for (const char* file : {kStart, kCommit, kRollback}) {
    platform().statements.remove(file);
  }
  RdbmsInterface db;
  EXPECT_FALSE(db.startTransaction());
  EXPECT_FALSE(db.commitTransaction());
  EXPECT_EQ(
      platform().log.lines(),
      (LogLines{
          error("RdbmsInterface::startTransaction: Exception \"no statement file ui_StartTransaction.sql\" thrown for statement "),
          error("RdbmsInterface::commitTransaction: Exception \"no statement file ui_CommitTransaction.sql\" thrown for statement ")}));
}

}  // namespace
