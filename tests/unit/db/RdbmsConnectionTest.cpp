// The life of one object: taking a connection, doing without one, giving it back.
#include <cstring>
#include <string>
#include <vector>

#include "InstallationTest.h"
#include "NothrowAllocationFailure.h"
#include "ProcessTest.h"
#include "RdbmsInterface.h"
#include "scripted/Prelude.h"

namespace {

using ZARO::RdbmsInterface;

using Texts = std::vector<std::string>;

void setTuning(int connectTimeOut, int retryTimeOut, int reconnectTrials) {
  RdbmsInterface::setDbConnectTimeOut(connectTimeOut);
  RdbmsInterface::setDbRetryTimeOut(retryTimeOut);
  RdbmsInterface::setDbReconnectTrial(reconnectTrials);
}

// Objects open connections of their own, since nothing has been initialised.
class RdbmsConnection : public PlatformTest {
 protected:
  ~RdbmsConnection() override { setTuning(0, 0, 0); }
};

// --- Opening ---

struct TuningCase {
  const char* label;
  int connectTimeOut, retryTimeOut, reconnectTrials;
  Texts wantCalls;  // between making the connection and connecting it
};

const TuningCase kTuningCases[] = {
    {"nothing set", 0, 0, 0, {}},
    {"connect time-out", 7, 0, 0, {"KxDbConnect#1.setDbConnectTimeOut(7)"}},
    {"retry time-out", 0, 8, 0, {"KxDbConnect#1.setDbRetrialTimeOut(8)"}},
    {"reconnect trials", 0, 0, 9, {"KxDbConnect#1.setDbReconnectTrial(9)"}},
    {"all",
     7,
     8,
     9,
     {"KxDbConnect#1.setDbConnectTimeOut(7)", "KxDbConnect#1.setDbRetrialTimeOut(8)",
      "KxDbConnect#1.setDbReconnectTrial(9)"}},
    {"first and last", 7, 0, 9, {"KxDbConnect#1.setDbConnectTimeOut(7)", "KxDbConnect#1.setDbReconnectTrial(9)"}},
    {"negative",
     -1,
     -2,
     -3,
     {"KxDbConnect#1.setDbConnectTimeOut(-1)", "KxDbConnect#1.setDbRetrialTimeOut(-2)",
      "KxDbConnect#1.setDbReconnectTrial(-3)"}},
};

TEST_F(RdbmsConnection, isTunedThenConnectedThenClosed) {
  for (const TuningCase& c : kTuningCases) {
    SCOPED_TRACE(c.label);
    platform().reset();
    setTuning(c.connectTimeOut, c.retryTimeOut, c.reconnectTrials);
    Texts wanted = {"KxDbConnect#1()"};
    wanted.insert(wanted.end(), c.wantCalls.begin(), c.wantCalls.end());
    wanted.insert(wanted.end(), {"KxDbConnect#1.connect(\"\", \"\", \"\", \"\")", "~KxDbConnect#1()"});
    { const RdbmsInterface db; }
    EXPECT_EQ(platform().calls.all(), wanted);
  }
}

TEST_F(RdbmsConnection, takesTheTuningOfTheMomentItIsMade) {
  const RdbmsInterface before;
  setTuning(7, 0, 0);
  const RdbmsInterface after;
  setTuning(0, 0, 0);
  const RdbmsInterface atLast;
  EXPECT_THAT(platform().calls.beginningWith("KxDbConnect#1.set"), IsEmpty());
  EXPECT_THAT(platform().calls.beginningWith("KxDbConnect#2.set"), ElementsAre("KxDbConnect#2.setDbConnectTimeOut(7)"));
  EXPECT_THAT(platform().calls.beginningWith("KxDbConnect#3.set"), IsEmpty());
}

TEST_F(RdbmsConnection, isOneForEachObject) {
  const RdbmsInterface first;
  const RdbmsInterface second;
  EXPECT_EQ(platform().database.openConnections(), 2);
}

PROCESS_TEST(RdbmsConnectionStart, tuningIsOffAtFirst) {
  { const RdbmsInterface db; }
  EXPECT_THAT(platform().calls.all(),
              ElementsAre("KxDbConnect#1()", "KxDbConnect#1.connect(\"\", \"\", \"\", \"\")", "~KxDbConnect#1()"));
}

// --- Failing to open ---

struct OpeningFailure {
  const char* label;
  Point point;
  bool keepsConnection;  // unconnected, but there
};

const OpeningFailure kOpeningFailures[] = {
    {"making", Point::ConnectionMade, false},
    {"connect time-out", Point::SetConnectTimeOut, true},
    {"retry time-out", Point::SetRetryTimeOut, true},
    {"reconnect trials", Point::SetReconnectTrial, true},
    {"connecting", Point::Connect, true},
};

TEST_F(RdbmsConnection, logsATextThrownWhileOpening) {
  setTuning(1, 2, 3);
  for (const OpeningFailure& c : kOpeningFailures) {
    SCOPED_TRACE(c.label);
    platform().reset();
    platform().faults.throwText(c.point, "no 100% server");
    {
      RdbmsInterface db;
      EXPECT_EQ(platform().log.lines(),
                LogLines{error("RdbmsInterface::RdbmsInterface: Exception \"no 100% server\" thrown")});
      EXPECT_EQ(platform().database.openConnections(), c.keepsConnection ? 1 : 0);
      EXPECT_EQ(db.getStmtHandle() != nullptr, c.keepsConnection);
    }
    EXPECT_EQ(platform().database.openConnections(), 0);
    EXPECT_EQ(platform().calls.countOf("KxDbConnect.connect"), c.point == Point::Connect ? 1u : 0u);
  }
}

TEST_F(RdbmsConnection, letsOtherExceptionsPassWithoutALeak) {
  setTuning(1, 2, 3);
  for (const OpeningFailure& c : kOpeningFailures) {
    SCOPED_TRACE(c.label);
    platform().reset();
    platform().faults.throwOther(c.point);
    EXPECT_THROW(RdbmsInterface(), OtherFailure);
    EXPECT_THAT(platform().log.lines(), IsEmpty());
    EXPECT_EQ(platform().database.openConnections(), 0);
  }
}

TEST_F(RdbmsConnection, unconnectedOneStillGetsTheCalls) {
  platform().faults.throwText(Point::Connect, "no server");
  RdbmsInterface db;
  EXPECT_THROW(db.executeSQL("SELECT 1"), const char*);  // as this platform answers
  EXPECT_EQ(db.fetchNextRow(), -1);
  EXPECT_EQ(platform().calls.countOf("KxDbConnect.executeSQL"), 1u);
  EXPECT_EQ(platform().calls.countOf("KxDbConnect.fetchNextRow"), 1u);
}

// --- Doing without a connection ---

// Every operation, and what it answers when there is no connection.
void expectAnswersOfNoConnection(RdbmsInterface& db) {
  platform().calls.clear();
  db.executeSQL("SELECT 1");
  db.executeSQL("SELECT 1", KxDbConnect::SQL_TYPE_MSSQL);
  EXPECT_EQ(db.fetchNextRow(), -1);
  EXPECT_EQ(db.fetchNextResultSet(), -1);
  EXPECT_EQ(db.getColVal("C"), nullptr);
  EXPECT_EQ(db.getColValInt("C"), 0);
  EXPECT_EQ(db.getStmtHandle(), nullptr);
  char buffer[] = "untouched";
  EXPECT_EQ(db.getError(3, nullptr, buffer, sizeof buffer), 0);
  EXPECT_STREQ(buffer, "untouched");
  EXPECT_THAT(platform().calls.all(), IsEmpty());
}

// The transaction operations load their statements all the same; executing them does nothing.
void expectTransactionsOfNoConnection(RdbmsInterface& db) {
  EXPECT_TRUE(db.commitTransaction());
  EXPECT_TRUE(db.startTransaction());
  EXPECT_TRUE(db.startTransaction());
  EXPECT_THAT(platform().database.executions(), IsEmpty());
  EXPECT_EQ(platform().statements.loaded().size(), 2u);
}

TEST_F(RdbmsConnection, doesNothingWhenMakingItFailed) {
  platform().faults.throwText(Point::ConnectionMade, "out of handles");
  {
    RdbmsInterface db;
    platform().log.clear();
    expectAnswersOfNoConnection(db);
    expectTransactionsOfNoConnection(db);
  }
  EXPECT_EQ(platform().statements.last().file, "ui_RollbackTransaction.sql");
  EXPECT_THAT(platform().database.executions(), IsEmpty());
  EXPECT_THAT(platform().log.lines(), IsEmpty());
}

TEST_F(RdbmsConnection, doesNothingWhenItCannotBeAllocated) {
  setTuning(1, 2, 3);
  const NothrowAllocationFailure failure;
  RdbmsInterface db;
  EXPECT_TRUE(failure.happened());
  EXPECT_THAT(platform().calls.all(), IsEmpty());
  expectAnswersOfNoConnection(db);
  expectTransactionsOfNoConnection(db);
}

// --- From the pool ---

class PooledConnection : public InstallationTest {
 protected:
  // For the child process only.
  static void initialise() {
    ASSERT_TRUE(initPooled());
    platform().calls.clear();
    platform().log.clear();
  }
};

PROCESS_TEST_F(PooledConnection, isLentAndGivenBack) {
  initialise();
  { const RdbmsInterface db; }
  { const RdbmsInterface db; }
  const std::string connected =
      "KxDbConnect#1.connect(\"" + std::string(kInitString) + "\", \"gateway\", \"policy\", \"secret\")";
  EXPECT_THAT(platform().calls.all(),
              ElementsAre("KxDataAccess#1.getConnect()", "KxDbConnect#1()", connected,
                          "KxDataAccess#1.returnConnect(a connection)", "KxDataAccess#1.getConnect()",
                          "KxDataAccess#1.returnConnect(a connection)"));
}

PROCESS_TEST_F(PooledConnection, isNoneWhenThePoolThrows) {
  initialise();
  platform().faults.throwText(Point::PoolGetConnect, "pool is dry");
  {
    RdbmsInterface db;
    EXPECT_EQ(platform().log.lines(),
              LogLines{error("RdbmsInterface::RdbmsInterface: Exception \"pool is dry\" thrown")});
    expectAnswersOfNoConnection(db);
    expectTransactionsOfNoConnection(db);
    platform().calls.clear();
  }
  // Given back even though there is none.
  EXPECT_THAT(platform().calls.beginningWith("KxDataAccess"), ElementsAre("KxDataAccess#1.returnConnect(null)"));
}

PROCESS_TEST_F(PooledConnection, letsOtherExceptionsOfThePoolPass) {
  initialise();
  platform().faults.throwOther(Point::PoolGetConnect);
  EXPECT_THROW(RdbmsInterface(), OtherFailure);
  EXPECT_THAT(platform().log.lines(), IsEmpty());
  EXPECT_EQ(platform().calls.countOf("KxDataAccess.returnConnect"), 0u);
}

PROCESS_TEST_F(PooledConnection, isRolledBackBeforeItIsGivenBack) {
  initialise();
  {
    RdbmsInterface db;
    EXPECT_TRUE(db.startTransaction());
    platform().calls.clear();
  }
  EXPECT_THAT(platform().calls.all(),
              ElementsAre("KxSqlLoader(\"/opt/gw/sql\")", "KxSqlLoader.loadSQL(256, \"ui_RollbackTransaction.sql\")",
                          "KxDbConnect#1.executeSQL(\"ui_RollbackTransaction.sql\", 0)",
                          "KxDataAccess#1.returnConnect(a connection)"));
}

PROCESS_TEST_F(PooledConnection, isGivenBackWhenTheRollbackFails) {
  initialise();
  {
    RdbmsInterface db;
    EXPECT_TRUE(db.startTransaction());
    platform().faults.throwText(Point::Execute, "gone");
  }
  EXPECT_EQ(platform().calls.countOf("KxDataAccess.returnConnect"), 1u);
  EXPECT_EQ(platform().log.texts(LogLevel::Error).size(), 1u);
}

}  // namespace
