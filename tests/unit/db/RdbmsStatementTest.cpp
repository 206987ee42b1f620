// Statements and results: what the connection is asked, and that its answers come back unchanged.
#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "RdbmsInterface.h"
#include "scripted/Prelude.h"

namespace {

using ZARO::RdbmsInterface;

using RdbmsStatement = PlatformTest;

// --- Statement kinds ---

struct KindCase {
  const char* label;
  std::optional<std::string> type;  // ZARO_DB_TYPE
  KxDbConnect::SQL_TYPE want;
};

const KindCase kKindCases[] = {
    {"unset", {}, KxDbConnect::SQL_TYPE_DEFAULT},           {"mssql", "mssql", KxDbConnect::SQL_TYPE_MSSQL},
    {"upper case", "MSSQL", KxDbConnect::SQL_TYPE_DEFAULT}, {"mixed case", "Mssql", KxDbConnect::SQL_TYPE_DEFAULT},
    {"empty", "", KxDbConnect::SQL_TYPE_DEFAULT},           {"beginning only", "mssq", KxDbConnect::SQL_TYPE_DEFAULT},
    {"longer", "mssql2", KxDbConnect::SQL_TYPE_DEFAULT},    {"blank behind", "mssql ", KxDbConnect::SQL_TYPE_DEFAULT},
    {"other", "postgresql", KxDbConnect::SQL_TYPE_DEFAULT},
};

TEST_F(RdbmsStatement, kindFollowsTheEnvironmentOfTheMoment) {
  platform().database.reply("SELECT 1", Reply());
  RdbmsInterface db;
  for (const KindCase& c : kKindCases) {
    SCOPED_TRACE(c.label);
    if (c.type) {
      platform().environment.set("ZARO_DB_TYPE", *c.type);
    } else {
      platform().environment.unset("ZARO_DB_TYPE");
    }
    db.executeSQL("SELECT 1");
    EXPECT_EQ(platform().database.executions().back().kind, c.want);
  }
}

TEST_F(RdbmsStatement, kindGivenByTheCallerWins) {
  platform().database.reply("SELECT 1", Reply());
  RdbmsInterface db;
  db.executeSQL("SELECT 1", KxDbConnect::SQL_TYPE_MSSQL);
  platform().environment.set("ZARO_DB_TYPE", "mssql");
  db.executeSQL("SELECT 1", KxDbConnect::SQL_TYPE_DEFAULT);
  db.executeSQL("SELECT 1", static_cast<KxDbConnect::SQL_TYPE>(1));
  EXPECT_THAT(platform().calls.beginningWith("KxDbConnect#1.executeSQL"),
              ElementsAre("KxDbConnect#1.executeSQL(\"SELECT 1\", 1)", "KxDbConnect#1.executeSQL(\"SELECT 1\", 0)",
                          "KxDbConnect#1.executeSQL(\"SELECT 1\", 1)"));
}

TEST_F(RdbmsStatement, textReachesTheDatabaseUnchanged) {
  RdbmsInterface db;
  for (const std::string& text : {std::string(), std::string("100% 'x' \\ \xC3\xA4\n;"), std::string(1000000, 'x')}) {
    platform().database.reply(text, Reply());
    db.executeSQL(text.c_str());
    EXPECT_EQ(platform().database.statements().back(), text);
  }
}

TEST_F(RdbmsStatement, failurePassesUnlogged) {
  RdbmsInterface db;
  platform().database.reply("BAD", Reply::failure("syntax"));
  try {
    db.executeSQL("BAD");
    FAIL() << "nothing was thrown";
  } catch (const char* thrown) {
    EXPECT_STREQ(thrown, "syntax");
  }
  EXPECT_THAT(platform().log.lines(), IsEmpty());
}

// --- Results ---

TEST_F(RdbmsStatement, rowsAndResultSetsAreWalked) {
  platform().database.reply(
      "SELECT", Reply({"Id", "Name"}, {{"1", "one"}, {"-2", kNull}, {"3", ""}}).andThen({"Other"}, {{"4"}}));
  RdbmsInterface db;
  EXPECT_EQ(db.fetchNextRow(), -1);  // nothing was executed yet
  EXPECT_EQ(db.fetchNextResultSet(), -1);
  db.executeSQL("SELECT");
  ASSERT_EQ(db.fetchNextRow(), 0);
  EXPECT_EQ(db.getColValInt("Id"), 1);
  EXPECT_STREQ(db.getColVal("Id"), "1");
  EXPECT_STREQ(db.getColVal("Name"), "one");
  ASSERT_EQ(db.fetchNextRow(), 0);
  EXPECT_EQ(db.getColValInt("Id"), -2);
  EXPECT_EQ(db.getColVal("Name"), nullptr);
  EXPECT_EQ(db.getColValInt("Name"), 0);
  ASSERT_EQ(db.fetchNextRow(), 0);
  EXPECT_STREQ(db.getColVal("Name"), "");
  EXPECT_EQ(db.fetchNextRow(), 1);
  EXPECT_EQ(db.fetchNextRow(), 1);
  ASSERT_EQ(db.fetchNextResultSet(), 0);
  ASSERT_EQ(db.fetchNextRow(), 0);
  EXPECT_STREQ(db.getColVal("Other"), "4");
  EXPECT_EQ(db.fetchNextResultSet(), 1);
}

TEST_F(RdbmsStatement, codesOfTheConnectionComeBackUnchanged) {
  platform().database.reply("SELECT", Reply({"Id"}, {}).endingRowsWith(7).endingResultsWith(-9));
  RdbmsInterface db;
  db.executeSQL("SELECT");
  EXPECT_EQ(db.fetchNextRow(), 7);
  EXPECT_EQ(db.fetchNextResultSet(), -9);
}

TEST_F(RdbmsStatement, resultEndsWithTheNextStatement) {
  platform().database.reply("FIRST", Reply({"Id"}, {{"1"}, {"2"}}));
  platform().database.reply("SECOND", Reply({"Id"}, {{"3"}}));
  RdbmsInterface db;
  db.executeSQL("FIRST");
  EXPECT_EQ(db.fetchNextRow(), 0);
  db.executeSQL("SECOND");
  EXPECT_EQ(db.getColVal("Id"), nullptr);
  EXPECT_EQ(db.fetchNextRow(), 0);
  EXPECT_STREQ(db.getColVal("Id"), "3");
}

TEST_F(RdbmsStatement, diagnosticsAreForwarded) {
  RdbmsInterface db;
  void* const handle = db.getStmtHandle();
  ASSERT_NE(handle, nullptr);
  platform().database.setDiagnostics(42, "HY000 broken");
  char buffer[8] = "";
  EXPECT_EQ(db.getError(3, handle, buffer, sizeof buffer), 42);
  EXPECT_STREQ(buffer, "HY000 b");
  EXPECT_EQ(db.getError(-1, nullptr, buffer, 2), 42);
  EXPECT_STREQ(buffer, "H");
  EXPECT_THAT(platform().calls.beginningWith("KxDbConnect#1.get"),
              ElementsAre("KxDbConnect#1.getStmtHandle()", "KxDbConnect#1.getError(3, its handle, a buffer, 8)",
                          "KxDbConnect#1.getError(-1, another handle, a buffer, 2)"));
}

struct ForwardingCase {
  const char* label;
  Point point;
  std::function<void(RdbmsInterface&)> operation;
  const char* wantCall;
};

char diagnostics[16];

const ForwardingCase kForwardingCases[] = {
    {"executeSQL", Point::Execute, [](RdbmsInterface& db) { db.executeSQL("S"); }, "KxDbConnect#1.executeSQL(\"S\", 0)"},
    {"executeSQL with a kind", Point::Execute,
     [](RdbmsInterface& db) { db.executeSQL("S", KxDbConnect::SQL_TYPE_MSSQL); }, "KxDbConnect#1.executeSQL(\"S\", 1)"},
    {"fetchNextRow", Point::FetchRow, [](RdbmsInterface& db) { db.fetchNextRow(); }, "KxDbConnect#1.fetchNextRow()"},
    {"fetchNextResultSet", Point::FetchResultSet, [](RdbmsInterface& db) { db.fetchNextResultSet(); },
     "KxDbConnect#1.fetchNextResultSet()"},
    {"getColVal", Point::ColumnText, [](RdbmsInterface& db) { db.getColVal("C"); }, "KxDbConnect#1.getColVal(\"C\")"},
    {"getColValInt", Point::ColumnInt, [](RdbmsInterface& db) { db.getColValInt("C"); },
     "KxDbConnect#1.getColValInt(\"C\")"},
    {"getStmtHandle", Point::StatementHandle, [](RdbmsInterface& db) { db.getStmtHandle(); },
     "KxDbConnect#1.getStmtHandle()"},
    {"getError", Point::Diagnostics, [](RdbmsInterface& db) { db.getError(1, nullptr, diagnostics, sizeof diagnostics); },
     "KxDbConnect#1.getError(1, another handle, a buffer, 16)"},
};

TEST_F(RdbmsStatement, everyOperationIsOneCallOfTheConnection) {
  for (const ForwardingCase& c : kForwardingCases) {
    SCOPED_TRACE(c.label);
    platform().reset();
    platform().database.reply("S", Reply());
    RdbmsInterface db;
    platform().calls.clear();
    c.operation(db);
    EXPECT_THAT(platform().calls.all(), ElementsAre(c.wantCall));
  }
}

TEST_F(RdbmsStatement, everyOperationLetsExceptionsPass) {
  for (const ForwardingCase& c : kForwardingCases) {
    SCOPED_TRACE(c.label);
    platform().reset();
    RdbmsInterface db;
    platform().faults.throwText(c.point, "lost");
    EXPECT_THROW(c.operation(db), const char*);
    platform().faults.throwOther(c.point);
    EXPECT_THROW(c.operation(db), OtherFailure);
    EXPECT_THAT(platform().log.lines(), IsEmpty());
  }
}

}  // namespace
