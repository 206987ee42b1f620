// zaroctl admin id: an identifier for a name, whatever the name, and the truth when the database fails.
#include <nlohmann/json.hpp>

#include "programs/ProgramTest.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;
using zarotest::linesOf;
using zarotest::ProgramResult;

class AdminId : public zarotest::ProgramTest {
 protected:
  void addAdministrator(const std::string& literal) {
    session()->run("INSERT INTO administrator (name) VALUES (" + literal + ")");
  }
};

struct Name {
  const char* label;
  const char* text;
  const char* literal;  // as SQL takes it
  const char* shown;    // in diagnostics
};

// Each with a counterpart that a wrong comparison would find instead.
const Name kNames[] = {
    {"plain", "postmaster", "'postmaster'", "postmaster"},
    {"otherCase", "Postmaster", "'Postmaster'", "Postmaster"},
    {"quote", "o'brien", "'o''brien'", "o'brien"},
    {"quotesOnly", "''", "''''''", "''"},
    {"percent", "100%", "'100%'", "100%"},
    {"conversions", "%s%n%d", "'%s%n%d'", "%s%n%d"},
    {"pattern", "p_st%", "'p_st%'", "p_st%"},
    {"utf8", "m\xc3\xbcller", "'m\xc3\xbcller'", "m\xc3\xbcller"},
    {"backslash", "a\\'b", "'a\\''b'", "a\\\\'b"},
    {"controls", "a\tb\nc\x1b[31m", "'a\tb\nc\x1b[31m'", "a\\tb\\nc\\x1b[31m"},
    {"injection", "x' OR '1'='1", "'x'' OR ''1''=''1'", "x' OR '1'='1"},
    {"braces", "{d '2020-01-01'}", "'{d ''2020-01-01''}'", "{d '2020-01-01'}"},
    {"questionMark", "who?", "'who?'", "who?"},
    {"dash", "-v", "'-v'", "-v"},
    {"emptyBraces", "{}", "'{}'", "{}"},
    {"brackets", "[a,b]", "'[a,b]'", "[a,b]"},
    {"commandWord", "check", "'check'", "check"},
};

TEST_P(AdminId, everyNameIsFoundExactly) {
  mustInit();
  int id = 0;
  for (const Name& name : kNames) {
    const ProgramResult before = run({"admin", "id", "--", name.text});
    EXPECT_EQ(before.status, 1) << name.label;
    EXPECT_EQ(before.out, "") << name.label;
    EXPECT_EQ(before.err, std::string("zaroctl: no administrator named \"") + name.shown + "\"\n");
    addAdministrator(name.literal);
    const ProgramResult after = run({"admin", "id", "--", name.text});
    EXPECT_EQ(after.status, 0) << name.label << after.err;
    EXPECT_EQ(after.out, std::to_string(++id) + "\n") << name.label;
    EXPECT_EQ(after.err, "") << name.label;
  }
}

TEST_P(AdminId, emptyNameIsNotFound) {
  mustInit({"--sample"});
  EXPECT_EQ(run({"admin", "id", ""}).status, 1);
}

TEST_P(AdminId, largestIdentifierIsPrintedUnsigned) {
  mustInit();
  session()->run("INSERT INTO administrator (id, name) VALUES (4294967294, 'last')");
  EXPECT_EQ(run({"admin", "id", "last"}).out, "4294967294\n");
}

TEST_P(AdminId, jsonHasNameAndNumber) {
  mustInit();
  addAdministrator("'m\xc3\xbcller \"x\"'");
  const ProgramResult result = run({"--json", "admin", "id", "m\xc3\xbcller \"x\""});
  EXPECT_EQ(result.status, 0);
  const auto document = nlohmann::json::parse(result.out);
  EXPECT_EQ(document, (nlohmann::json{{"name", "m\xc3\xbcller \"x\""}, {"id", 1}}));
}

TEST_P(AdminId, terminalGetsTheNumberToo) {
  mustInit({"--sample"});
  EXPECT_EQ(zarotest::zaroctlOnTerminal({"--home", home(), "admin", "id", "admin"}, "").out, "1\n");
}

TEST_P(AdminId, nameTooLongForTheStatementIsAFailureInOneLine) {
  mustInit();
  // As long as an argument can be.
  const ProgramResult result = run({"admin", "id", std::string(131000, 'a')});
  EXPECT_EQ(result.status, 65);
  EXPECT_EQ(linesOf(result.err).size(), 1u);
  EXPECT_LT(result.err.size(), 1000u);
  EXPECT_THAT(result.err, HasSubstr("(131000 bytes): ui_GetAdminId.sql: the statement takes"));
}

TEST_P(AdminId, longNameThatFitsIsNotFound) {
  mustInit();
  const ProgramResult result = run({"admin", "id", std::string(4000, 'a')});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("aaa...\" (4000 bytes)"));
}

TEST_P(AdminId, nameThatIsNoUtf8IsRefusedAndShownEscaped) {
  mustInit();
  const ProgramResult result = run({"admin", "id", "bad\xff"});
  EXPECT_THAT(result.err, HasSubstr("\"bad\\xff\""));
  EXPECT_THAT(result.err, HasSubstr("UTF-8"));
  EXPECT_EQ(result.status, 65);
}

TEST_P(AdminId, brokenStatementIsAFailureWithItsReason) {
  mustInit({"--sample"});
  writeFile("sql/ui_GetAdminId.sql", "SELECT nothing AS \"AdminID\" FROM administrator WHERE name='%s'");
  const ProgramResult result = run({"admin", "id", "admin"});
  EXPECT_EQ(result.status, 69);
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(result.err, StartsWith("zaroctl: cannot look up \"admin\": "));
  EXPECT_THAT(result.err, HasSubstr("nothing"));
  EXPECT_EQ(linesOf(result.err).size(), 1u);
}

TEST_P(AdminId, statementFilesOfAnotherDirectoryAreUsedWhenNamed) {
  mustInit({"--sample"});
  zarotest::ProgramRun other;
  other.environment["ZARO_HOME"] = home();
  other.environment["ZARO_DB_DIR"] = "none";
  const ProgramResult result = zarotest::zaroctl({"admin", "id", "admin"}, other);
  EXPECT_EQ(result.status, 78);
  EXPECT_THAT(result.err, HasSubstr("sql/none/ui_GetAdminId.sql: cannot open"));
}

ZARO_ON_EVERY_DATABASE(AdminId);

TEST(AdminIdWithoutInstallation, saysWhatIsMissing) {
  const zarotest::TemporaryDirectory directory;
  const ProgramResult unset = zarotest::zaroctl({"admin", "id", "x"});
  EXPECT_EQ(unset.status, 78);
  EXPECT_THAT(unset.err, StartsWith("zaroctl: ZARO_HOME is not set"));
  const ProgramResult absent = zarotest::zaroctl({"--home", directory.path("none"), "admin", "id", "x"});
  EXPECT_EQ(absent.status, 78);
  EXPECT_THAT(absent.err, HasSubstr("none/config/database.ini: cannot open: No such file or directory"));
}

}  // namespace
