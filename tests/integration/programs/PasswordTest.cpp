// How zaroctl takes passwords in: every one of them works, and none is shown.
#include <filesystem>

#include "programs/ProgramTest.h"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;
using zarotest::Dialect;
using zarotest::linesOf;
using zarotest::ProgramResult;
using zarotest::ProgramRun;
using zarotest::readFile;
using zarotest::TemporaryDirectory;
using zarotest::zaroctl;

std::string escapedQuotes(const std::string& text) {
  std::string result;
  for (const char sign : text) {
    result.append(sign == '\'' ? 2 : 1, sign);
  }
  return result;
}

class Password : public zarotest::ProgramTest {
 protected:
  void TearDown() override {
    if (!m_role.empty()) {
      session()->run("DROP OWNED BY " + m_role);
      session()->run("DROP ROLE " + m_role);
    }
  }

  // Gives the test's database a user with this password.
  void makeUser(const std::string& password) {
    if (m_role.empty()) {
      m_role = "zaro_role_" + value("SELECT current_database()");
      session()->run("CREATE ROLE " + m_role + " LOGIN");
      session()->run("GRANT ALL ON SCHEMA public TO " + m_role);
    }
    session()->run("ALTER ROLE " + m_role + " PASSWORD '" + escapedQuotes(password) + "'");
  }

  ProgramResult initWith(const std::string& input) {
    ProgramRun run;
    run.input = input;
    return zaroctl(initArguments(home(), {"--user", m_role}), run);
  }

  void expectUsable(const std::string& password) {
    EXPECT_EQ(run({"check"}).status, 0) << run({"check"}).out;
    EXPECT_EQ(run({"admin", "id", "nobody"}).status, 1);
    EXPECT_THAT(readFile(homeFile("config/database.ini")), Not(HasSubstr(password)));
    EXPECT_THAT(readFile(homeFile("config/database.ini")), HasSubstr("\nPassword=zaro-secretbox-1:"));
  }

  std::string m_role;
};

const char* const kPasswords[] = {
    "simple",          "with blank",     " blanks around ",  "semi;colon",     "{braces}",    "}half{",
    "a;DATABASE=evil", "percent%41%zz%", "quote'and\"other", "back\\slash",    "p\xc3\xa4ss", "PWD=x;UID=y",
    "-dash",           "#hash;[x]=y",    "tab\tinside",      "plus+equals=&?",
};

TEST_P(Password, everyPasswordIsStoredEncryptedAndOpensTheDatabase) {
  for (const char* password : kPasswords) {
    makeUser(password);
    const ProgramResult made = initWith(std::string(password) + "\n");
    ASSERT_EQ(made.status, 0) << password << ": " << made.err;
    expectUsable(password);
    fs::remove_all(home());
  }
}

TEST_P(Password, onlyTheFirstLineCounts) {
  makeUser("secret");
  EXPECT_EQ(initWith("secret\nmore\n").status, 0);
}

TEST_P(Password, lineEndIsNotNeeded) {
  makeUser("secret");
  EXPECT_EQ(initWith("secret").status, 0);
}

TEST_P(Password, wrongPasswordIsToldNeverShownAndLeavesNothing) {
  makeUser("secret");
  const ProgramResult made = initWith("wrong-guess\n");
  EXPECT_EQ(made.status, 77);
  EXPECT_EQ(made.out, "");
  EXPECT_EQ(linesOf(made.err).size(), 1u);
  EXPECT_THAT(made.err, HasSubstr("password authentication failed"));
  EXPECT_THAT(made.err, Not(HasSubstr("wrong-guess")));
  EXPECT_TRUE(fs::is_empty(directory().path()));
}

TEST_P(Password, verboseLogsDoNotShowIt) {
  makeUser("topsecret;DATABASE=x");
  ASSERT_EQ(initWith("topsecret;DATABASE=x\n").status, 0);
  for (const auto& arguments : {std::vector<std::string>{"-vv", "check"}, {"-vv", "admin", "id", "x"}}) {
    const ProgramResult result = run(arguments);
    EXPECT_THAT(result.out + result.err, Not(HasSubstr("topsecret")));
  }
}

TEST_P(Password, changedPasswordIsStoredAndOpensTheDatabase) {
  makeUser("old-secret");
  ASSERT_EQ(initWith("old-secret\n").status, 0);
  makeUser("new-secret");
  EXPECT_EQ(run({"admin", "id", "nobody"}).status, 77);
  const ProgramResult changed = run({"password"}, "new-secret\n");
  EXPECT_EQ(changed.status, 0) << changed.err;
  expectUsable("new-secret");
}

TEST_P(Password, promptOnATerminalDoesNotEcho) {
  makeUser("typed-secret");
  const ProgramResult made = zarotest::zaroctlOnTerminal(initArguments(home(), {"--user", m_role}), "typed-secret\n");
  EXPECT_EQ(made.status, 0) << made.out;
  EXPECT_THAT(made.out, testing::StartsWith("Password of " + m_role + " at "));
  EXPECT_THAT(made.out, Not(HasSubstr("typed-secret")));
  expectUsable("typed-secret");
}

INSTANTIATE_TEST_SUITE_P(, Password, testing::Values(Dialect::PostgreSQL), zarotest::dialectTestName);

struct RefusedInput {
  const char* label;
  std::string input;
  int status;
  const char* told;
};

const RefusedInput kRefusedInputs[] = {
    {"nothing", "", 65, "no password on standard input"},
    {"emptyLine", "\nsecret\n", 64, "the password is empty; with --no-password none is stored"},
    {"nul", std::string("se\0cret\n", 8), 64, "a password cannot hold NUL"},
    {"longerThanCanBeStored", std::string(256, 'x') + "\n", 78, "Password is longer than 255 bytes"},
    {"noPasswordAtAll", std::string(5000, 'x'), 65, "too long for a password"},
};

TEST(PasswordInput, unusableInputIsRefusedAndLeavesNothing) {
  for (const RefusedInput& refused : kRefusedInputs) {
    const TemporaryDirectory directory;
    ProgramRun run;
    run.input = refused.input;
    const ProgramResult result = zaroctl({"init", "--db", "postgresql", directory.path("gateway")}, run);
    EXPECT_EQ(result.status, refused.status) << refused.label;
    EXPECT_THAT(result.err, HasSubstr(refused.told)) << refused.label;
    EXPECT_TRUE(fs::is_empty(directory.path())) << refused.label;
  }
}

TEST(PasswordInput, interruptAtThePromptLeavesNothing) {
  const TemporaryDirectory directory;
  const ProgramResult result =
      zarotest::zaroctlOnTerminal({"init", "--db", "postgresql", directory.path("gateway")}, "\x03");
  EXPECT_EQ(result.status, 130);
  EXPECT_TRUE(fs::is_empty(directory.path()));
}

// A signal that comes when the program is not yet waiting must not be lost.
TEST(PasswordInput, interruptBeforeThePromptIsWrittenIsObeyed) {
  const TemporaryDirectory directory;
  ProgramRun run;
  run.typedBeforeThePrompt = true;
  const ProgramResult result =
      zarotest::zaroctlOnTerminal({"init", "--db", "postgresql", directory.path("gateway")}, "\x03", run);
  EXPECT_EQ(result.status, 130) << result.err;
  EXPECT_TRUE(fs::is_empty(directory.path()));
}

TEST(PasswordInput, embeddedDatabaseAsksForNone) {
  const TemporaryDirectory directory;
  const ProgramResult result = zarotest::zaroctlOnTerminal({"init", directory.path("gateway")}, "");
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, Not(HasSubstr("Password of")));
}

}  // namespace
