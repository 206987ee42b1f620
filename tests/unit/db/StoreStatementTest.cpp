// The frame of every store operation: buffers, escaped texts and failures.
#include "db/StoreStatement.h"

#include <climits>
#include <stdexcept>
#include <string>

#include "scripted/Prelude.h"

namespace {

using ZARO::EscapedText;
using ZARO::RdbmsInterface;

class StoreStatement : public PlatformTest {
 protected:
  RdbmsInterface m_db;
};

// --- Loading and running ---

TEST_F(StoreStatement, isEmptyBeforeItIsLoaded) {
  const ZARO::StoreStatement<64> statement(m_db);
  EXPECT_STREQ(statement.text(), "");
}

TEST_F(StoreStatement, loadsItsParametersInOrderAndRuns) {
  platform().database.replyToFile("ui_AddAddressgroup.sql", Reply());
  ZARO::StoreStatement<512> statement(m_db);
  statement.run("ui_AddAddressgroup.sql", 4294967295u, "sales", 2u, "<mas></mas>");
  EXPECT_STREQ(statement.text(), "ui_AddAddressgroup.sql [4294967295] [sales] [2] [<mas></mas>]");
  EXPECT_EQ(platform().statements.last().bufferSize, 512);
  EXPECT_THAT(platform().database.statements(), ElementsAre(statement.text()));
}

TEST_F(StoreStatement, parametersAreNoFormats) {
  platform().database.replyToFile("ui_GetAdminId.sql", Reply());
  ZARO::StoreStatement<64> statement(m_db);
  statement.run("ui_GetAdminId.sql", "100%s");
  EXPECT_STREQ(statement.text(), "ui_GetAdminId.sql [100%s]");
}

TEST_F(StoreStatement, runsOneStatementAfterAnother) {
  platform().database.replyToFile("ui_RemoveAddressgroup.sql", Reply());
  ZARO::StoreStatement<64> statement(m_db);
  statement.run("ui_RemoveAddressgroup.sql", 1u);
  statement.run("ui_RemoveAddressgroup.sql", 2u);
  EXPECT_THAT(platform().database.statements(),
              ElementsAre("ui_RemoveAddressgroup.sql [1]", "ui_RemoveAddressgroup.sql [2]"));
}

TEST_F(StoreStatement, failedLoadShowsEmptyText) {
  for (const Point point : {Point::LoaderMade, Point::Load, Point::LoadAfterWrite}) {
    SCOPED_TRACE(nameOf(point));
    platform().reset();
    platform().database.replyToFile("ui_RemoveAddressgroup.sql", Reply());
    ZARO::StoreStatement<64> statement(m_db);
    statement.run("ui_RemoveAddressgroup.sql", 1u);
    platform().faults.throwText(point, "unreadable");
    EXPECT_THROW(statement.run("ui_RemoveAddressgroup.sql", 2u), const char*);
    EXPECT_STREQ(statement.text(), "");
    EXPECT_THAT(platform().database.statements(), ElementsAre("ui_RemoveAddressgroup.sql [1]"));
  }
}

TEST_F(StoreStatement, nullParameterFailsTheLoad) {
  ZARO::StoreStatement<64> statement(m_db);
  EXPECT_THROW(statement.run("ui_GetAdminId.sql", static_cast<const char*>(nullptr)), const char*);
  EXPECT_STREQ(statement.text(), "");
  EXPECT_THAT(platform().database.statements(), IsEmpty());
}

TEST_F(StoreStatement, failedExecuteShowsTheStatement) {
  platform().faults.throwText(Point::Execute, "locked");
  ZARO::StoreStatement<64> statement(m_db);
  EXPECT_THROW(statement.run("ui_RemoveAddressgroup.sql", 1u), const char*);
  EXPECT_STREQ(statement.text(), "ui_RemoveAddressgroup.sql [1]");
}

// --- The handler for thrown texts ---

TEST_F(StoreStatement, guardGivesTheOperationsResult) {
  ZARO::StoreStatement<64> statement(m_db);
  EXPECT_EQ(statement.guard("%s %s", 1003, [] { return 5; }), 5);
  EXPECT_TRUE(statement.guard("%s %s", false, [] { return true; }));
  EXPECT_THAT(platform().log.lines(), IsEmpty());
}

TEST_F(StoreStatement, guardLogsAThrownTextAndGivesTheFailure) {
  platform().database.replyToFile("ui_RemoveAddressgroup.sql", Reply());
  ZARO::StoreStatement<64> statement(m_db);
  const int result = statement.guard("X::y: Exception \"%s\" thrown for statement %s", 1003, [&]() -> int {
    statement.run("ui_RemoveAddressgroup.sql", 1u);
    throw "100% lost";
  });
  EXPECT_EQ(result, 1003);
  EXPECT_EQ(platform().log.lines(),
            LogLines{error("X::y: Exception \"100% lost\" thrown for statement ui_RemoveAddressgroup.sql [1]")});
}

TEST_F(StoreStatement, guardLetsOtherExceptionsPass) {
  ZARO::StoreStatement<64> statement(m_db);
  EXPECT_THROW(statement.guard("%s %s", 1003, []() -> int { throw OtherFailure("x"); }), OtherFailure);
  EXPECT_THROW(statement.guard("%s %s", 1003, []() -> int { throw std::string("x"); }), std::string);
  EXPECT_THROW(statement.guard("%s %s", 1003, []() -> int { throw 7; }), int);
  EXPECT_THAT(platform().log.lines(), IsEmpty());
}

TEST(CatchThrownText, handsTheTextToTheHandler) {
  const char* text = "lost";
  const char* seen = nullptr;
  const int result = ZARO::catchThrownText([&]() -> int { throw text; },
                                           [&](const char* thrown) {
                                             seen = thrown;
                                             return 3;
                                           });
  EXPECT_EQ(result, 3);
  EXPECT_EQ(static_cast<const void*>(seen), static_cast<const void*>(text));
}

TEST(CatchThrownText, letsTheHandlersExceptionsPass) {
  EXPECT_THROW(ZARO::catchThrownText([]() -> int { throw "lost"; }, [](const char*) -> int { throw 4; }), int);
}

// --- Texts ---

TEST(EscapedText, doublesQuotesAndKeepsNull) {
  EXPECT_STREQ(EscapedText("O'Brien").get(), "O''Brien");
  EXPECT_EQ(EscapedText(nullptr).get(), nullptr);
  const char* plain = "Smith";
  EXPECT_EQ(static_cast<const void*>(EscapedText(plain).get()), static_cast<const void*>(plain));
}

TEST(ShownText, namesNull) {
  EXPECT_STREQ(ZARO::shownText(nullptr), "NULL string");
  EXPECT_STREQ(ZARO::shownText(""), "");
  EXPECT_STREQ(ZARO::shownText("12"), "12");
}

// --- Numbers ---

struct NumberCase {
  const char* label;
  const char* column;
  bool wantRead;
  unsigned int want;
};

const NumberCase kNumberCases[] = {
    {"null", nullptr, false, 0},
    {"empty", "", false, 0},
    {"blank", "  ", false, 0},
    {"letters", "abc", false, 0},
    {"sign only", "-", false, 0},
    {"two signs", "--1", false, 0},
    {"sign apart", "- 1", false, 0},
    {"zero", "0", true, 0},
    {"plain", "12", true, 12},
    {"letters behind", "12abc", true, 12},
    {"point behind", "12.9", true, 12},
    {"blank behind", "12 ", true, 12},
    {"blanks before", " \t\n12", true, 12},
    {"plus", "+12", true, 12},
    {"leading zeros are decimal", "0012", true, 12},
    {"hexadecimal stops at x", "0x1F", true, 0},
    {"minus one", "-1", true, 4294967295u},
    {"minus two", "-2", true, 4294967294u},
    {"highest int", "2147483647", true, 2147483647u},
    {"above int", "2147483648", true, 2147483648u},
    {"highest unsigned", "4294967295", true, 4294967295u},
    {"above unsigned", "4294967296", false, 0},
    {"lowest int", "-2147483648", true, 2147483648u},
    {"below int", "-2147483649", false, 0},
    {"beyond 64 bits", "99999999999999999999", false, 0},
    {"below 64 bits", "-99999999999999999999", false, 0},
};

TEST(ReadNumber, takesTheLeadingNumber) {
  for (const NumberCase& c : kNumberCases) {
    SCOPED_TRACE(c.label);
    unsigned int number = 77;
    EXPECT_EQ(ZARO::readNumber(c.column, number), c.wantRead);
    EXPECT_EQ(number, c.wantRead ? c.want : 77u);

    int sameBits = 77;
    EXPECT_EQ(ZARO::readNumber(c.column, sameBits), c.wantRead);
    EXPECT_EQ(sameBits, c.wantRead ? static_cast<int>(c.want) : 77);
  }
}

}  // namespace
