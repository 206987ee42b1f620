// zaroctl password: a password takes the place of another, and nothing else in the installation changes.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "programs/ProgramTest.h"

namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using zarotest::Dialect;
using zarotest::everythingIn;
using zarotest::linesOf;
using zarotest::ProgramResult;
using zarotest::ProgramRun;
using zarotest::readFile;
using zarotest::zaroctl;
using zarotest::zaroctlOnTerminal;

constexpr const char* kDatabaseIni = "config/database.ini";
constexpr const char* kSecretKey = "config/secret.key";
constexpr const char* kOpens = "ok\tpassword\tstored encrypted; the key opens it\n";

// The embedded database takes no password, so that anything can be stored for it.
class PasswordCommand : public zarotest::ProgramTest {
 protected:
  void SetUp() override {
    ProgramTest::SetUp();
    mustInit();
  }

  void mustStore(const std::string& password) {
    const ProgramResult result = run({"password"}, password + "\n");
    ASSERT_EQ(result.status, 0) << result.err;
  }

  // Refuses in one line and leaves every file as it was.
  void expectRefused(const std::vector<std::string>& arguments, const std::string& input, int status,
                     const std::string& told) {
    const auto before = everythingIn(home());
    const ProgramResult result = run(arguments, input);
    EXPECT_EQ(result.status, status);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, StartsWith("zaroctl: "));
    EXPECT_THAT(result.err, HasSubstr(told));
    EXPECT_EQ(linesOf(result.err).size(), 1u) << result.err;
    EXPECT_EQ(everythingIn(home()), before);
  }

  struct stat statusOf(const std::string& name) {
    struct stat status = {};
    EXPECT_EQ(stat(homeFile(name).c_str(), &status), 0) << name;
    return status;
  }

  // What the file says, without the stored password and without the empty lines that set off its comments.
  std::vector<std::string> otherLines() {
    std::vector<std::string> lines;
    for (const std::string& line : linesOf(readFile(homeFile(kDatabaseIni)))) {
      if (!line.empty() && line.compare(0, 9, "Password=") != 0) {
        lines.push_back(line);
      }
    }
    return lines;
  }
};

TEST_P(PasswordCommand, passwordIsStoredEncrypted) {
  const ProgramResult result = run({"password"}, "new secret\n");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.out, "file\t" + homeFile(kDatabaseIni) + "\npassword\tstored encrypted\n");
  EXPECT_THAT(readFile(homeFile(kDatabaseIni)), HasSubstr("\nPassword=zaro-secretbox-1:"));
  EXPECT_THAT(readFile(homeFile(kDatabaseIni)), Not(HasSubstr("secret\n")));
  EXPECT_THAT(run({"check"}).out, HasSubstr(kOpens));
}

TEST_P(PasswordCommand, laterPasswordTakesThePlaceOfTheEarlier) {
  mustStore("first");
  const std::string first = readFile(homeFile(kDatabaseIni));
  mustStore("second");
  EXPECT_NE(readFile(homeFile(kDatabaseIni)), first);
  EXPECT_THAT(run({"check"}).out, HasSubstr(kOpens));
}

TEST_P(PasswordCommand, commentsPermissionsAndOtherFilesStay) {
  ASSERT_EQ(chmod(homeFile(kDatabaseIni).c_str(), 0660), 0);
  const auto lines = otherLines();
  EXPECT_THAT(lines, Contains("; A section of odbc.ini beside this file."));
  auto before = everythingIn(home());
  mustStore("secret");
  EXPECT_EQ(otherLines(), lines);
  EXPECT_EQ(statusOf(kDatabaseIni).st_mode & 07777, 0660u);
  auto after = everythingIn(home());
  before.erase(homeFile(kDatabaseIni));
  after.erase(homeFile(kDatabaseIni));
  EXPECT_EQ(after, before);
}

TEST_P(PasswordCommand, ownerStaysAndOwnsANewKey) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can give files away";
  }
  ASSERT_EQ(chown(homeFile(kDatabaseIni).c_str(), 4711, 4712), 0);
  fs::remove(homeFile(kSecretKey));
  mustStore("secret");
  EXPECT_EQ(statusOf(kDatabaseIni).st_uid, 4711u);
  EXPECT_EQ(statusOf(kDatabaseIni).st_gid, 4712u);
  EXPECT_EQ(statusOf(kDatabaseIni).st_mode & 07777, 0640u);
  EXPECT_EQ(statusOf(kSecretKey).st_uid, 4711u);
  EXPECT_EQ(statusOf(kSecretKey).st_mode & 07777, 0600u);
}

TEST_P(PasswordCommand, fileOfSomebodyElseIsRefusedAndUntouched) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can give files away";
  }
  for (const bool withKey : {true, false}) {
    ASSERT_EQ(chown(homeFile(kDatabaseIni).c_str(), 4711, 4712), 0);
    ASSERT_EQ(chmod(homeFile(kDatabaseIni).c_str(), 0666), 0);
    if (!withKey) {
      fs::remove(homeFile(kSecretKey));
    }
    const auto before = everythingIn(home());
    ProgramRun run;
    run.input = "secret\n";
    run.obeysPermissions = true;
    const ProgramResult result = zaroctl({"--home", home(), "password"}, run);
    EXPECT_EQ(result.status, 77);
    EXPECT_THAT(result.err, HasSubstr(homeFile(kDatabaseIni) + ": cannot keep its owner and group (run this as its "
                                                               "owner or as root): Operation not permitted"));
    EXPECT_EQ(everythingIn(home()), before);
  }
}

TEST_P(PasswordCommand, linkedSettingsStayLinked) {
  fs::rename(homeFile(kDatabaseIni), homeFile("data/real.ini"));
  fs::create_symlink("../data/real.ini", homeFile(kDatabaseIni));
  mustStore("secret");
  EXPECT_TRUE(fs::is_symlink(homeFile(kDatabaseIni)));
  EXPECT_THAT(readFile(homeFile("data/real.ini")), HasSubstr("\nPassword=zaro-secretbox-1:"));
}

TEST_P(PasswordCommand, settingsThatTheVariableNamesAreChanged) {
  fs::copy(homeFile(kDatabaseIni), homeFile("config/other.ini"));
  ProgramRun run;
  run.input = "secret\n";
  run.environment = {{"ZARO_HOME", home()}, {"ZARO_DB_INI", "other.ini"}};
  EXPECT_EQ(zaroctl({"password"}, run).status, 0);
  EXPECT_THAT(readFile(homeFile("config/other.ini")), HasSubstr("\nPassword=zaro-secretbox-1:"));
  EXPECT_THAT(readFile(homeFile(kDatabaseIni)), HasSubstr("\nPassword=\n"));
}

TEST_P(PasswordCommand, missingKeyIsMadeAndADamagedPasswordReplaced) {
  replaceLine(kDatabaseIni, "Password", "Password=zaro-secretbox-1:AAAA");
  fs::remove(homeFile(kSecretKey));
  mustStore("secret");
  EXPECT_EQ(run({"check"}).status, 0) << run({"check"}).out;
}

TEST_P(PasswordCommand, missingEntryIsAdded) {
  replaceLine(kDatabaseIni, "Password", "");
  mustStore("secret");
  EXPECT_THAT(run({"check"}).out, HasSubstr(kOpens));
}

TEST_P(PasswordCommand, clearRemovesItAndAsksForNothing) {
  mustStore("secret");
  const ProgramResult result = run({"password", "--clear", "--json"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "{\n  \"file\": \"" + homeFile(kDatabaseIni) + "\",\n  \"password\": \"removed\"\n}\n");
  EXPECT_THAT(readFile(homeFile(kDatabaseIni)), HasSubstr("\nPassword=\n"));
  EXPECT_THAT(run({"check"}).out, HasSubstr("ok\tpassword\tnone stored\n"));
}

TEST_P(PasswordCommand, clearNeedsNoKey) {
  mustStore("secret");
  fs::remove(homeFile(kSecretKey));
  EXPECT_EQ(run({"password", "--clear"}).status, 0);
  EXPECT_EQ(run({"check"}).status, 0);
  EXPECT_FALSE(fs::exists(homeFile(kSecretKey)));
}

TEST_P(PasswordCommand, unusablePasswordsAreRefused) {
  expectRefused({"password"}, "", 65, "no password on standard input");
  expectRefused({"password"}, "\n", 64, "the password is empty; with --clear the stored one is removed");
  expectRefused({"password"}, std::string("a\0b\n", 4), 64, "a password cannot hold NUL");
  expectRefused({"password"}, std::string(256, 'x') + "\n", 78, "Password is longer than 255 bytes");
}

TEST_P(PasswordCommand, passwordThatMakesTheSettingsTooLongIsRefused) {
  replaceLine(kDatabaseIni, "UserId", "UserId=" + std::string(250, 'u'));
  expectRefused({"password"}, std::string(250, 'x') + "\n", 78, "are too long together");
}

TEST_P(PasswordCommand, keyThatOthersCanReadIsNamed) {
  ASSERT_EQ(chmod(homeFile(kSecretKey).c_str(), 0640), 0);
  expectRefused({"password"}, "secret\n", 78, homeFile(kSecretKey) + ": the key file is open to group or others");
}

TEST_P(PasswordCommand, unusableSettingsAreNamed) {
  for (const std::vector<std::string>& arguments : {std::vector<std::string>{"password"}, {"password", "--clear"}}) {
    writeFile(kDatabaseIni, "[Other]\n");
    expectRefused(arguments, "secret\n", 78, homeFile(kDatabaseIni) + ": section [Database_Settings] is missing");
    writeFile(kDatabaseIni, "[Database_Settings]\nPassword\n");
    expectRefused(arguments, "secret\n", 78, homeFile(kDatabaseIni) + ": line 2 is neither a section");
    fs::remove(homeFile(kDatabaseIni));
    expectRefused(arguments, "secret\n", 78, homeFile(kDatabaseIni) + ": cannot open: No such file or directory");
  }
}

TEST_P(PasswordCommand, oneChangeAtATime) {
  const int other = open(homeFile("config").c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(flock(other, LOCK_EX), 0);
  expectRefused({"password"}, "secret\n", 75,
                homeFile("config") + ": another program is changing files there; try again");
  close(other);
  mustStore("secret");
}

TEST_P(PasswordCommand, promptOnATerminalSaysWhoseAndDoesNotEcho) {
  replaceLine(kDatabaseIni, "UserId", "UserId=gateway");
  const ProgramResult result = zaroctlOnTerminal({"--home", home(), "password"}, "typed-secret\n");
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_THAT(result.out, StartsWith("Password of gateway: "));
  EXPECT_THAT(result.out, Not(HasSubstr("typed-secret")));
  EXPECT_THAT(run({"check"}).out, HasSubstr(kOpens));
}

TEST_P(PasswordCommand, interruptAtThePromptChangesNothing) {
  const auto before = everythingIn(home());
  EXPECT_EQ(zaroctlOnTerminal({"--home", home(), "password"}, "\x03").status, 130);
  EXPECT_EQ(everythingIn(home()), before);
}

INSTANTIATE_TEST_SUITE_P(, PasswordCommand, testing::Values(Dialect::SQLite), zarotest::dialectTestName);

TEST(PasswordCommandWithoutInstallation, saysWhatIsMissing) {
  EXPECT_EQ(zaroctl({"password"}).err, "zaroctl: ZARO_HOME is not set: it names the installation directory\n");
}

}  // namespace
