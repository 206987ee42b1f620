// The administrators' order of rule filters, and its verification.
#include <string>
#include <vector>

#include "RdbmsInterface.h"
#include "miscUtils.h"
#include "scripted/Prelude.h"

namespace {

using ZARO::RdbmsInterface;

constexpr const char* kSwitchStatement = "ui_GetGlobalSettingValue.sql [email-scan] [manualRuleOrder]";
constexpr const char* kOrderStatement = "ui_GetManualOrderSetting.sql";

constexpr const char* kNoSwitch =
    "miscUtils::getUserDefinedRuleOrder: could not retrieve manualRuleOrder setting for statement ui_GetGlobalSettingValue.sql [email-scan] [manualRuleOrder]";

using Numbers = std::vector<int>;

LogLines errors(const std::vector<std::string>& texts) {
  LogLines lines;
  for (const std::string& text : texts) {
    lines.push_back(error(text));
  }
  return lines;
}

class RuleOrder : public PlatformTest {
 protected:
  static void setSwitch(const Reply& reply) { platform().database.reply(kSwitchStatement, reply); }
  static void setSwitch(const std::string& value) { setSwitch(Reply({"value"}, {{value}})); }
  // Switched on, with these rows: group, rank, name.
  static void setRows(const std::vector<Row>& rows) {
    setSwitch("on");
    platform().database.reply(kOrderStatement, Reply({"FilterID", "RuleOrder", "FilterType"}, rows));
  }

  int read(bool verify = false) {
    m_manual = true;
    m_order = {ZaroFilter::Snap};  // to be emptied
    RdbmsInterface db;
    return miscUtils::getUserDefinedRuleOrder(db, m_manual, m_order, verify);
  }
  int readVerifying() { return read(true); }

  Numbers order() const { return Numbers(m_order.begin(), m_order.end()); }

  bool m_manual = true;
  std::vector<ZaroFilter::FilterType> m_order;
};

// --- The switch ---

struct SwitchCase {
  const char* label;
  std::vector<Row> rows;
  int want;
  bool wantManual;
  bool wantLogged;
};

const SwitchCase kSwitchCases[] = {
    {"on", {{"on"}}, 0, true, false},
    {"off", {{"off"}}, 0, false, false},
    {"empty", {{""}}, 0, false, false},
    {"capitals count", {{"On"}}, 0, false, false},
    {"yes is not on", {{"yes"}}, 0, false, false},
    {"blank before", {{" on"}}, 0, false, false},
    {"blank behind", {{"on "}}, 0, false, false},
    {"begins with on", {{"once"}}, 0, false, false},
    {"one", {{"1"}}, 0, false, false},
    {"only the first row", {{"on"}, {"off"}}, 0, true, false},
    {"only the first row, which is off", {{"off"}, {"on"}}, 0, false, false},
    {"NULL", {{kNull}}, 1002, false, true},
    {"NULL before on", {{kNull}, {"on"}}, 1002, false, true},
    {"no row", {}, 1002, false, true},
};

TEST_F(RuleOrder, isSwitchedOnByOneWordAlone) {
  for (const SwitchCase& c : kSwitchCases) {
    SCOPED_TRACE(c.label);
    platform().reset();
    setSwitch(Reply({"value"}, c.rows));
    platform().database.reply(kOrderStatement, Reply({"FilterID", "RuleOrder", "FilterType"}, {}));
    EXPECT_EQ(read(), c.want);
    EXPECT_EQ(m_manual, c.wantManual);
    EXPECT_THAT(m_order, IsEmpty());
    EXPECT_EQ(platform().log.lines(), c.wantLogged ? LogLines{error(kNoSwitch)} : LogLines{});
    EXPECT_EQ(platform().database.statements().size(), c.wantManual ? 2u : 1u) << "rows are read when it is on";
  }
}

TEST_F(RuleOrder, missingColumnOfTheSwitchReadsAsNull) {
  setSwitch(Reply({"Value"}, {{"on"}}));
  EXPECT_EQ(read(), 1002);
  EXPECT_FALSE(m_manual);
}

TEST_F(RuleOrder, onlyOneAnswerOfTheFetchMeansNoRow) {
  for (const int code : {1, -1, 2, 100}) {
    SCOPED_TRACE(code);
    platform().reset();
    setSwitch(Reply({"value"}, {}).endingRowsWith(code));
    EXPECT_EQ(read(), 1002);
    EXPECT_EQ(platform().log.lines().size(), 1u);
    EXPECT_EQ(platform().calls.countOf("KxDbConnect.getColVal"), code == 1 ? 0u : 1u);
  }
}

// --- The order ---

TEST_F(RuleOrder, callsComeInOrder) {
  setRows({{"4", "1", "Spam"}});
  RdbmsInterface db;
  platform().calls.clear();
  EXPECT_EQ(miscUtils::getUserDefinedRuleOrder(db, m_manual, m_order, true), 0);
  EXPECT_THAT(platform().calls.all(),
              ElementsAre("KxSqlLoader(\"\")", "KxSqlLoader.loadSQL(256, \"ui_GetGlobalSettingValue.sql\")",
                          std::string("KxDbConnect#1.executeSQL(\"") + kSwitchStatement + "\", 0)",
                          "KxDbConnect#1.fetchNextRow()", "KxDbConnect#1.getColVal(\"value\")", "KxSqlLoader(\"\")",
                          "KxSqlLoader.loadSQL(256, \"ui_GetManualOrderSetting.sql\")",
                          "KxDbConnect#1.executeSQL(\"ui_GetManualOrderSetting.sql\", 0)", "KxDbConnect#1.fetchNextRow()",
                          "KxDbConnect#1.getColVal(\"FilterID\")", "KxDbConnect#1.getColVal(\"RuleOrder\")",
                          "KxDbConnect#1.getColVal(\"FilterType\")", "KxDbConnect#1.fetchNextRow()"));
}

TEST_F(RuleOrder, withoutVerificationNothingButTheGroupIsRead) {
  setRows({{"4", kNull, kNull}, {"1", "9", "x"}});
  EXPECT_EQ(read(), 0);
  EXPECT_EQ(order(), (Numbers{8, 1}));
  EXPECT_EQ(platform().calls.countOf("KxDbConnect.getColVal"), 3u);
  EXPECT_THAT(platform().log.lines(), IsEmpty());
}

struct GroupCase {
  const char* id;
  const char* name;
  Numbers filters;
  const char* namedInMismatch;
};

const GroupCase kGroupCases[] = {
    {"1", "Virus", {1}, "ZaroFilter::Virus"},
    {"2", "Attachment", {2, 3, 4, 5}, "ZaroFilter::Attachment"},
    {"3", "Size", {6, 7}, "ZaroFilter::Size"},
    {"4", "Spam", {8}, "ZaroFilter::SpamOstrel"},
    {"5", "Content", {9, 10, 11, 12, 13}, "ZaroFilter::Size"},
    {"6", "Other", {14, 15, 16, 30}, "ZaroFilter::Size"},
};

TEST_F(RuleOrder, everyGroupStandsForItsFilters) {
  for (const GroupCase& c : kGroupCases) {
    SCOPED_TRACE(c.name);
    platform().reset();
    setRows({{c.id, "1", c.name}});
    EXPECT_EQ(readVerifying(), 0);
    EXPECT_TRUE(m_manual);
    EXPECT_EQ(order(), c.filters);
    EXPECT_THAT(platform().log.lines(), IsEmpty());
  }
}

TEST_F(RuleOrder, groupsAreKnownByNumber) {
  for (const GroupCase& c : kGroupCases) {
    const miscUtils::FilterGroup* group = miscUtils::findFilterGroup(std::stoi(c.id));
    ASSERT_NE(group, nullptr);
    EXPECT_EQ(group->id, std::stoi(c.id));
    EXPECT_STREQ(group->name, c.name);
    EXPECT_EQ(Numbers(group->filters.begin(), group->filters.end()), c.filters);
  }
  for (const int other : {0, 7, -1, 30, 2147483647}) {
    EXPECT_EQ(miscUtils::findFilterGroup(other), nullptr);
  }
}

TEST_F(RuleOrder, followsTheRowsAndNothingElse) {
  setRows({{"4", "9", "x"}, {"1", "1", "x"}, {"3", "0", "x"}});
  EXPECT_EQ(read(), 0);
  EXPECT_EQ(order(), (Numbers{8, 1, 6, 7}));
}

TEST_F(RuleOrder, groupStoredTwiceStandsThereTwice) {
  setRows({{"3", "1", "Size"}, {"1", "2", "Virus"}, {"3", "3", "Size"}});
  EXPECT_EQ(readVerifying(), 0);
  EXPECT_EQ(order(), (Numbers{6, 7, 1, 6, 7}));
  EXPECT_THAT(platform().log.lines(), IsEmpty());
}

TEST_F(RuleOrder, withoutRowsIsEmptyAndSwitchedOn) {
  setRows({});
  EXPECT_EQ(read(), 0);
  EXPECT_TRUE(m_manual);
  EXPECT_THAT(m_order, IsEmpty());
}

TEST_F(RuleOrder, everyCodeButZeroEndsTheRows) {
  for (const int code : {1, -1, 2, 100}) {
    platform().reset();
    setSwitch("on");
    platform().database.reply(kOrderStatement, Reply({"FilterID"}, {{"1"}}).endingRowsWith(code));
    EXPECT_EQ(read(), 0) << code;
    EXPECT_TRUE(m_manual);
    EXPECT_EQ(order(), Numbers{1});
  }
}

struct NumberCase {
  const char* label;
  const char* filterId;
  Numbers want;
  const char* wantInvalid;  // number in the message; null: none
};

const NumberCase kNumberCases[] = {
    {"zero", "0", {1}, "0"},
    {"seven", "7", {1}, "7"},
    {"negative", "-1", {1}, "-1"},
    {"filter number that is no group", "30", {1}, "30"},
    {"largest", "2147483647", {1}, "2147483647"},
    {"blanks and leading zeros", " 004", {8, 1}, nullptr},
    {"plus", "+4", {8, 1}, nullptr},
    {"letters behind", "4x", {8, 1}, nullptr},
    {"point behind", "4.9", {8, 1}, nullptr},
};

TEST_F(RuleOrder, unknownGroupIsSkippedAndLogged) {
  for (const NumberCase& c : kNumberCases) {
    SCOPED_TRACE(c.label);
    platform().reset();
    setRows({{c.filterId, "1", "x"}, {"1", "2", "Virus"}});
    EXPECT_EQ(read(), 0);
    EXPECT_TRUE(m_manual);
    EXPECT_EQ(order(), c.want);
    LogLines wanted;
    if (c.wantInvalid != nullptr) {
      wanted.push_back(error(std::string("miscUtils::getUserDefinedRuleOrder: Invalid filter id ") + c.wantInvalid));
    }
    EXPECT_EQ(platform().log.lines(), wanted);
  }
}

struct UnreadableCase {
  const char* label;
  scripted::Value filterId;
  const char* wantShown;
};

const UnreadableCase kUnreadableCases[] = {
    {"NULL", kNull, "NULL"},
    {"empty", "", ""},
    {"letters", "Virus", "Virus"},
    {"format", "%s", "%s"},
    {"blank", " ", " "},
    {"sign only", "-", "-"},
    {"more than 32 bits", "4294967296", "4294967296"},
};

TEST_F(RuleOrder, unreadableGroupEndsTheReading) {
  for (const UnreadableCase& c : kUnreadableCases) {
    SCOPED_TRACE(c.label);
    platform().reset();
    setRows({{"4", "1", "Spam"}, {c.filterId, "2", "Virus"}, {"1", "3", "Virus"}});
    EXPECT_EQ(readVerifying(), 1002);
    EXPECT_FALSE(m_manual);
    EXPECT_EQ(order(), Numbers{8}) << "what was read before stays";
    EXPECT_EQ(platform().log.lines(),
              LogLines{error(std::string("miscUtils::getUserDefinedRuleOrder: failed to retrieve FilterID from ") +
                             c.wantShown + " string for statement " + kOrderStatement)});
  }
}

// --- Verification ---

struct VerifyCase {
  const char* label;
  Row row;  // the third of three
  Numbers wantBehind;
  std::vector<std::string> wantLogged;
};

const VerifyCase kVerifyCases[] = {
    {"as expected", {"3", "3", "Size"}, {6, 7}, {}},
    {"rank with blanks and zeros", {"3", " 03", "Size"}, {6, 7}, {}},
    {"rank with letters behind", {"3", "3x", "Size"}, {6, 7}, {}},
    {"other rank",
     {"3", "5", "Size"},
     {6, 7},
     {"miscUtils::_verifyFilterNames: expected order 3 != dbOrder 5 for filter: 3; Size"}},
    {"negative rank",
     {"3", "-3", "Size"},
     {6, 7},
     {"miscUtils::_verifyFilterNames: expected order 3 != dbOrder -3 for filter: 3; Size"}},
    {"rank is NULL",
     {"3", kNull, kNull},
     {6, 7},
     {"miscUtils::_verifyFilterNames: failed to retrieve RuleOrder from NULL string for filterId 3"}},
    {"rank is no number",
     {"3", "third", "wrong"},
     {6, 7},
     {"miscUtils::_verifyFilterNames: failed to retrieve RuleOrder from third string for filterId 3"}},
    {"rank is empty",
     {"3", "", "Size"},
     {6, 7},
     {"miscUtils::_verifyFilterNames: failed to retrieve RuleOrder from  string for filterId 3"}},
    {"name is NULL, which hides the rank",
     {"3", "5", kNull},
     {6, 7},
     {"miscUtils::_verifyFilterNames: failed to retrieve FilterType for filterId 3"}},
    {"other rank and other name",
     {"1", "9", "Size"},
     {1},
     {"miscUtils::_verifyFilterNames: expected order 3 != dbOrder 9 for filter: 1; Size",
      "miscUtils::_verifyFilterNames: expected name Size for  ZaroFilter::Virus"}},
    {"name is empty", {"1", "3", ""}, {1}, {"miscUtils::_verifyFilterNames: expected name  for  ZaroFilter::Virus"}},
    {"name is a format",
     {"1", "3", "%s%n"},
     {1},
     {"miscUtils::_verifyFilterNames: expected name %s%n for  ZaroFilter::Virus"}},
    {"letter case counts",
     {"5", "3", "content"},
     {9, 10, 11, 12, 13},
     {"miscUtils::_verifyFilterNames: expected name content for  ZaroFilter::Size"}},
    {"unknown group zero",
     {"0", "3", "Virus"},
     {},
     {"miscUtils::getUserDefinedRuleOrder: Invalid filter id 0",
      "miscUtils::_verifyFilterNames: unexpected filter type 0"}},
    {"unknown group seven with another rank",
     {"7", "4", "Xel"},
     {},
     {"miscUtils::getUserDefinedRuleOrder: Invalid filter id 7",
      "miscUtils::_verifyFilterNames: expected order 3 != dbOrder 4 for filter: 7; Xel",
      "miscUtils::_verifyFilterNames: unexpected filter type 7"}},
    {"unknown group without a rank",
     {"-7", kNull, "Xel"},
     {},
     {"miscUtils::getUserDefinedRuleOrder: Invalid filter id -7",
      "miscUtils::_verifyFilterNames: failed to retrieve RuleOrder from NULL string for filterId -7"}},
    {"unknown group without a name",
     {"7", "3", kNull},
     {},
     {"miscUtils::getUserDefinedRuleOrder: Invalid filter id 7",
      "miscUtils::_verifyFilterNames: failed to retrieve FilterType for filterId 7"}},
};

TEST_F(RuleOrder, verificationLogsWhatDiffersAndChangesNothing) {
  for (const VerifyCase& c : kVerifyCases) {
    SCOPED_TRACE(c.label);
    platform().reset();
    setRows({{"2", "1", "Attachment"}, {"4", "2", "Spam"}, c.row});
    EXPECT_EQ(readVerifying(), 0);
    EXPECT_TRUE(m_manual);
    Numbers wanted = {2, 3, 4, 5, 8};
    wanted.insert(wanted.end(), c.wantBehind.begin(), c.wantBehind.end());
    EXPECT_EQ(order(), wanted);
    EXPECT_EQ(platform().log.lines(), errors(c.wantLogged));
  }
}

TEST_F(RuleOrder, everyGroupReportsAnotherNameUnderItsWords) {
  for (const GroupCase& c : kGroupCases) {
    SCOPED_TRACE(c.name);
    platform().reset();
    const std::string stored = std::string(c.name) + " ";
    setRows({{c.id, "1", stored}});
    EXPECT_EQ(readVerifying(), 0);
    EXPECT_EQ(platform().log.lines(),
              LogLines{error("miscUtils::_verifyFilterNames: expected name " + stored + " for  " + c.namedInMismatch)});
  }
}

TEST_F(RuleOrder, positionCountsEveryRow) {
  setRows({{"7", "1", "x"}, {"1", "2", "Virus"}, {"0", "3", "y"}, {"2", "4", "Attachment"}});
  EXPECT_EQ(readVerifying(), 0);
  EXPECT_EQ(order(), (Numbers{1, 2, 3, 4, 5}));
  EXPECT_EQ(platform().log.lines(), errors({"miscUtils::getUserDefinedRuleOrder: Invalid filter id 7",
                                            "miscUtils::_verifyFilterNames: unexpected filter type 7",
                                            "miscUtils::getUserDefinedRuleOrder: Invalid filter id 0",
                                            "miscUtils::_verifyFilterNames: unexpected filter type 0"}));
}

// --- Failures ---

std::string thrownMessage(const std::string& thrown, const std::string& statement) {
  return "miscUtils::getUserDefinedRuleOrder: Exception \"" + thrown + "\" thrown for statement " + statement;
}

struct ThrowCase {
  const char* label;
  Point point;
  int passage;
  const char* wantStatement;
  Numbers wantOrder;
};

const ThrowCase kThrowCases[] = {
    {"loader of the switch", Point::LoaderMade, 1, "", {}},
    {"load of the switch", Point::Load, 1, "", {}},
    {"load of the switch half way", Point::LoadAfterWrite, 1, "", {}},
    {"execution of the switch", Point::Execute, 1, kSwitchStatement, {}},
    {"fetch of the switch", Point::FetchRow, 1, kSwitchStatement, {}},
    {"column of the switch", Point::ColumnText, 1, kSwitchStatement, {}},
    {"loader of the order", Point::LoaderMade, 2, "", {}},
    {"load of the order", Point::Load, 2, "", {}},
    {"load of the order half way", Point::LoadAfterWrite, 2, "", {}},
    {"execution of the order", Point::Execute, 2, kOrderStatement, {}},
    {"first row", Point::FetchRow, 2, kOrderStatement, {}},
    {"group of the first row", Point::ColumnText, 2, kOrderStatement, {}},
    {"second row", Point::FetchRow, 3, kOrderStatement, {8}},
    {"group of the second row", Point::ColumnText, 3, kOrderStatement, {8}},
    {"end of the rows", Point::FetchRow, 4, kOrderStatement, {8, 1}},
};

TEST_F(RuleOrder, thrownTextIsLoggedWithItsStatement) {
  for (const ThrowCase& c : kThrowCases) {
    SCOPED_TRACE(c.label);
    platform().reset();
    setRows({{"4", "1", "Spam"}, {"1", "2", "Virus"}});
    platform().faults.throwText(c.point, "100% lost", c.passage);
    EXPECT_EQ(read(), 1003);
    EXPECT_FALSE(m_manual);
    EXPECT_EQ(order(), c.wantOrder);
    EXPECT_EQ(platform().log.lines(), LogLines{error(thrownMessage("100% lost", c.wantStatement))});
  }
}

TEST_F(RuleOrder, otherExceptionsPass) {
  for (const ThrowCase& c : kThrowCases) {
    SCOPED_TRACE(c.label);
    platform().reset();
    setRows({{"4", "1", "Spam"}, {"1", "2", "Virus"}});
    platform().faults.throwOther(c.point, c.passage);
    EXPECT_THROW(read(), OtherFailure);
    EXPECT_THAT(platform().log.lines(), IsEmpty());
  }
}

TEST_F(RuleOrder, failureOfTheVerificationEndsItForThatRowAlone) {
  for (const int column : {3, 4}) {  // rank and name of the first row, behind the switch and the group
    SCOPED_TRACE(column);
    platform().reset();
    setRows({{"4", "9", "Virus"}, {"1", "2", "Size"}});
    platform().faults.throwText(Point::ColumnText, "100% lost", column);
    EXPECT_EQ(readVerifying(), 0);
    EXPECT_TRUE(m_manual);
    EXPECT_EQ(order(), (Numbers{8, 1}));
    EXPECT_EQ(platform().log.lines(),
              errors({"miscUtils::_verifyFilterNames: Exception \"100% lost\" thrown",
                      "miscUtils::_verifyFilterNames: expected name Size for  ZaroFilter::Virus"}));
  }
}

TEST_F(RuleOrder, otherExceptionsOfTheVerificationPass) {
  setRows({{"4", "1", "Spam"}});
  platform().faults.throwOther(Point::ColumnText, 3);
  EXPECT_THROW(readVerifying(), OtherFailure);
}

TEST_F(RuleOrder, missingStatementFilesAreNamed) {
  platform().statements.remove("ui_GetGlobalSettingValue.sql");
  EXPECT_EQ(read(), 1003);
  EXPECT_EQ(platform().log.lines(), LogLines{error(thrownMessage("no statement file ui_GetGlobalSettingValue.sql", ""))});
  platform().reset();
  setRows({});
  platform().statements.remove("ui_GetManualOrderSetting.sql");
  EXPECT_EQ(read(), 1003);
  EXPECT_FALSE(m_manual);
  EXPECT_EQ(platform().log.lines(), LogLines{error(thrownMessage("no statement file ui_GetManualOrderSetting.sql", ""))});
}

TEST_F(RuleOrder, statementsHave256Bytes) {
  // Text that fills the buffer with its terminator, and one character more.
  for (const std::size_t length : {255u, 256u}) {
    platform().reset();
    setSwitch("on");
    const std::string text(length, 's');
    platform().statements.setText("ui_GetManualOrderSetting.sql", text);
    platform().database.reply(text, Reply({"FilterID"}, {{"1"}}));
    EXPECT_EQ(read(), length == 255 ? 0 : 1003);
    EXPECT_EQ(order(), length == 255 ? Numbers{1} : Numbers{});
  }
}

TEST_F(RuleOrder, withoutAConnectionTheSwitchIsMissing) {
  platform().faults.throwText(Point::ConnectionMade, "no server");
  EXPECT_EQ(read(), 1002);
  EXPECT_FALSE(m_manual);
  EXPECT_EQ(platform().log.lines(),
            errors({"RdbmsInterface::RdbmsInterface: Exception \"no server\" thrown", kNoSwitch}));
}

TEST_F(RuleOrder, refusedConnectionIsADatabaseFailure) {
  platform().faults.throwText(Point::Connect, "no server");
  EXPECT_EQ(read(), 1003);
  EXPECT_EQ(platform().log.lines().back(), error(thrownMessage("not connected", kSwitchStatement)));
}

}  // namespace
