// The look-up of an administrator's identifier.
#include "miscUtils.h"

#include <string>
#include <vector>

#include "RdbmsInterface.h"
#include "ZaroErrC.h"
#include "scripted/Prelude.h"

namespace {

using ZARO::RdbmsInterface;

constexpr unsigned int kBefore = 77;  // what the caller's variable holds
constexpr const char* kStatement = "ui_GetAdminId.sql [root]";

class AdminLookup : public PlatformTest {
 protected:
  int lookUp(const char* name) {
    m_adminId = kBefore;
    RdbmsInterface db;
    return miscUtils::getAdminId(db, name, m_adminId);
  }

  unsigned int m_adminId = kBefore;
};

// --- Answers of the database ---

struct AnswerCase {
  const char* label;
  std::vector<Row> rows;
  int want;
  unsigned int wantId;   // when found
  const char* wantText;  // in the message; null: none
};

const AnswerCase kAnswerCases[] = {
    {"found", {{"7"}}, 0, 7, nullptr},
    {"zero is an identifier", {{"0"}}, 0, 0, nullptr},
    {"highest", {{"4294967294"}}, 0, 4294967294u, nullptr},
    {"above the signed range", {{"2147483648"}}, 0, 2147483648u, nullptr},
    {"minus two", {{"-2"}}, 0, 4294967294u, nullptr},
    {"letters behind the number", {{"12ab"}}, 0, 12, nullptr},
    {"blanks around the number", {{" 12 "}}, 0, 12, nullptr},
    {"only the first of several", {{"7"}, {"8"}}, 0, 7, nullptr},
    {"only the first, though the second is bad", {{"7"}, {kNull}}, 0, 7, nullptr},
    {"no row", {}, 1002, 0, nullptr},
    {"NULL", {{kNull}}, 1002, 0, "NULL string"},
    {"NULL before a good row", {{kNull}, {"7"}}, 1002, 0, "NULL string"},
    {"empty", {{""}}, 1002, 0, ""},
    {"no number", {{"root"}}, 1002, 0, "root"},
    {"no number, with a percent sign", {{"%s"}}, 1002, 0, "%s"},
    {"minus one", {{"-1"}}, 1002, 0, "-1"},
    {"all bits set", {{"4294967295"}}, 1002, 0, "4294967295"},
    {"too large for 32 bits", {{"4294967296"}}, 1002, 0, "4294967296"},
};

TEST_F(AdminLookup, readsTheFirstRow) {
  for (const AnswerCase& c : kAnswerCases) {
    SCOPED_TRACE(c.label);
    platform().reset();
    platform().database.reply(kStatement, Reply({"AdminID"}, c.rows));
    EXPECT_EQ(lookUp("root"), c.want);
    if (c.want == 0) {
      EXPECT_EQ(m_adminId, c.wantId);
    }
    LogLines wanted;
    if (c.wantText != nullptr) {
      wanted.push_back(error(std::string("miscUtils::_getAdminId: could not retrieve admin ID from ") + c.wantText +
                             " for statement " + kStatement));
    }
    EXPECT_EQ(platform().log.lines(), wanted);
  }
}

TEST_F(AdminLookup, leavesTheCallersVariableWhenNothingWasRead) {
  platform().database.reply(kStatement, Reply({"AdminID"}, {}));
  EXPECT_EQ(lookUp("root"), ZaroErrC::MissingData);
  EXPECT_EQ(m_adminId, kBefore);
}

TEST_F(AdminLookup, missingColumnReadsAsNull) {
  platform().database.reply(kStatement, Reply({"Name"}, {{"7"}}));
  EXPECT_EQ(lookUp("root"), 1002);
  EXPECT_EQ(
      platform().log.lines(),
      LogLines{error(
          "miscUtils::_getAdminId: could not retrieve admin ID from NULL string for statement ui_GetAdminId.sql [root]")});
}

TEST_F(AdminLookup, everyCodeButZeroMeansNoRow) {
  for (const int code : {1, -1, 2, 100}) {
    platform().reset();
    platform().database.reply(kStatement, Reply({"AdminID"}, {}).endingRowsWith(code));
    EXPECT_EQ(lookUp("root"), 1002) << code;
    EXPECT_THAT(platform().log.lines(), IsEmpty());
    EXPECT_EQ(platform().calls.countOf("KxDbConnect.getColVal"), 0u);
  }
}

TEST_F(AdminLookup, callsComeInOrder) {
  platform().database.reply(kStatement, Reply({"AdminID"}, {{"7"}}));
  RdbmsInterface db;
  platform().calls.clear();
  EXPECT_EQ(miscUtils::getAdminId(db, "root", m_adminId), 0);
  EXPECT_THAT(platform().calls.all(),
              ElementsAre("KxSqlLoader(\"\")", "KxSqlLoader.loadSQL(4096, \"ui_GetAdminId.sql\")",
                          "KxDbConnect#1.executeSQL(\"ui_GetAdminId.sql [root]\", 0)", "KxDbConnect#1.fetchNextRow()",
                          "KxDbConnect#1.getColVal(\"AdminID\")"));
}

TEST_F(AdminLookup, readsBeforeItFetchesFurther) {
  platform().database.reply(kStatement, Reply({"AdminID"}, {{"7"}, {"8"}}));
  EXPECT_EQ(lookUp("root"), 0);
  EXPECT_EQ(platform().calls.countOf("KxDbConnect.fetchNextRow"), 1u);
}

TEST_F(AdminLookup, kindOfStatementFollowsTheEnvironment) {
  platform().environment.set("ZARO_DB_TYPE", "mssql");
  platform().database.reply(kStatement, Reply({"AdminID"}, {{"7"}}));
  EXPECT_EQ(lookUp("root"), 0);
  EXPECT_EQ(platform().database.executions().back().kind, KxDbConnect::SQL_TYPE_MSSQL);
}

TEST_F(AdminLookup, mayBeRepeatedOnOneObject) {
  platform().database.reply("ui_GetAdminId.sql [a]", Reply({"AdminID"}, {{"1"}}));
  platform().database.reply("ui_GetAdminId.sql [b]", Reply({"AdminID"}, {}));
  RdbmsInterface db;
  EXPECT_EQ(miscUtils::getAdminId(db, "a", m_adminId), 0);
  EXPECT_EQ(miscUtils::getAdminId(db, "b", m_adminId), 1002);
  EXPECT_EQ(miscUtils::getAdminId(db, "a", m_adminId), 0);
  EXPECT_EQ(m_adminId, 1u);
}

// --- Names ---

struct NameCase {
  const char* label;
  const char* name;
  const char* wantStatement;
};

const NameCase kNameCases[] = {
    {"plain", "root", "ui_GetAdminId.sql [root]"},
    {"empty", "", "ui_GetAdminId.sql []"},
    {"quote", "O'Brien", "ui_GetAdminId.sql [O''Brien]"},
    {"quotes only", "''", "ui_GetAdminId.sql ['''']"},
    {"percent signs", "100% %s %n", "ui_GetAdminId.sql [100% %s %n]"},
    {"backslash", "a\\'b", "ui_GetAdminId.sql [a\\''b]"},
    {"UTF-8", "M\xC3\xBCller", "ui_GetAdminId.sql [M\xC3\xBCller]"},
    {"control characters", "a\tb\nc\x01", "ui_GetAdminId.sql [a\tb\nc\x01]"},
};

TEST_F(AdminLookup, sendsTheNameWithQuotesDoubled) {
  for (const NameCase& c : kNameCases) {
    SCOPED_TRACE(c.label);
    platform().reset();
    platform().database.reply(c.wantStatement, Reply({"AdminID"}, {{"7"}}));
    EXPECT_EQ(lookUp(c.name), 0);
    EXPECT_THAT(platform().database.statements(), ElementsAre(c.wantStatement));
  }
}

TEST_F(AdminLookup, longestNameFillsTheBuffer) {
  // 4095 characters and the terminator; the rest of the text is "ui_GetAdminId.sql []".
  const std::string longest(4095 - 20, 'n');
  platform().database.replyToFile("ui_GetAdminId.sql", Reply({"AdminID"}, {{"7"}}));
  EXPECT_EQ(lookUp(longest.c_str()), 0);
  EXPECT_EQ(platform().database.statements().back().size(), 4095u);

  for (const std::string& tooLong : {longest + "n", std::string(1000000, 'n'), std::string(2100, '\'')}) {
    platform().log.clear();
    EXPECT_EQ(lookUp(tooLong.c_str()), 1003);
    EXPECT_EQ(
        platform().log.lines(),
        LogLines{error(
            "miscUtils::_getAdminId: Exception \"ui_GetAdminId.sql does not fit into 4096 bytes\" thrown for statement ")});
  }
  EXPECT_EQ(platform().database.statements().size(), 1u);
}

TEST_F(AdminLookup, nullNameFailsTheLoad) {
  EXPECT_EQ(lookUp(nullptr), 1003);
  EXPECT_EQ(
      platform().log.lines(),
      LogLines{error("miscUtils::_getAdminId: Exception \"null argument for ui_GetAdminId.sql\" thrown for statement ")});
  EXPECT_THAT(platform().database.executions(), IsEmpty());
}

// --- Failures ---

struct ThrowCase {
  const char* label;
  Point point;
  const char* wantStatement;
};

const ThrowCase kThrowCases[] = {
    {"loader", Point::LoaderMade, ""},
    {"load", Point::Load, ""},
    {"load half way", Point::LoadAfterWrite, ""},
    {"execute", Point::Execute, kStatement},
    {"fetch", Point::FetchRow, kStatement},
    {"column", Point::ColumnText, kStatement},
};

TEST_F(AdminLookup, logsAThrownText) {
  for (const ThrowCase& c : kThrowCases) {
    SCOPED_TRACE(c.label);
    platform().reset();
    platform().database.reply(kStatement, Reply({"AdminID"}, {{"7"}}));
    platform().faults.throwText(c.point, "100% lost");
    EXPECT_EQ(lookUp("root"), 1003);
    EXPECT_EQ(m_adminId, kBefore);
    EXPECT_EQ(platform().log.lines(),
              LogLines{error(std::string("miscUtils::_getAdminId: Exception \"100% lost\" thrown for statement ") +
                             c.wantStatement)});
  }
}

TEST_F(AdminLookup, letsOtherExceptionsPass) {
  for (const ThrowCase& c : kThrowCases) {
    SCOPED_TRACE(c.label);
    platform().reset();
    platform().database.reply(kStatement, Reply({"AdminID"}, {{"7"}}));
    platform().faults.throwOther(c.point);
    EXPECT_THROW(lookUp("root"), OtherFailure);
    EXPECT_THAT(platform().log.lines(), IsEmpty());
  }
}

TEST_F(AdminLookup, failsWithoutItsStatementFile) {
  platform().statements.remove("ui_GetAdminId.sql");
  EXPECT_EQ(lookUp("root"), ZaroErrC::DatabaseFailure);
  EXPECT_EQ(
      platform().log.lines(),
      LogLines{error("miscUtils::_getAdminId: Exception \"no statement file ui_GetAdminId.sql\" thrown for statement ")});
}

TEST_F(AdminLookup, findsNoRowWithoutAConnection) {
  platform().faults.throwText(Point::ConnectionMade, "no server");
  EXPECT_EQ(lookUp("root"), 1002);
  EXPECT_EQ(m_adminId, kBefore);
  EXPECT_EQ(platform().log.lines(), LogLines{error("RdbmsInterface::RdbmsInterface: Exception \"no server\" thrown")});
}

TEST_F(AdminLookup, failsWhenTheConnectionRefusesStatements) {
  platform().faults.throwText(Point::Connect, "no server");
  EXPECT_EQ(lookUp("root"), 1003);
  EXPECT_EQ(platform().log.texts(LogLevel::Error).back(),
            "miscUtils::_getAdminId: Exception \"not connected\" thrown for statement ui_GetAdminId.sql [root]");
}

}  // namespace
