// Users who may only read the database, by its files or its grants, can do what only reads.
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "programs/ProgramTest.h"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using zarotest::ProgramResult;
using zarotest::ProgramRun;

using Words = std::vector<std::string>;

const std::vector<Words> kReading = {
    {"check"},
    {"schema", "status"},
    {"export"},
    {"admin", "id", "postmaster"},
    {"admin", "list"},
    {"admin", "show", "postmaster"},
    {"entity", "list"},
    {"entity", "show", "*@example.test"},
    {"entity", "relatives", "*@sales.example.test"},
    {"entity", "tree"},
    {"object", "list", "--as", "sales-admin"},
    {"object", "list", "--as", "admin"},
    {"object", "show", "--as", "sales-admin", "3"},
    {"object", "why", "--as", "sales-admin", "3"},
    {"object", "policy-text"},
    {"quarantine", "list", "--as", "sales-admin"},
    {"group", "list"},
    {"group", "list", "--as", "sales-admin"},
    {"group", "show", "Board"},
    {"group", "show", "--as", "admin", "Board"},
    {"group", "export", "Board"},
    {"match", "--tree", "group:Board", "chair@example.test"},
    {"lint", "group:Board"},
    {"settings", "server"},
    {"settings", "client"},
    {"settings", "filter"},
    {"servers", "list"},
    {"rule", "list", "--as", "admin"},
    {"rule", "show", "--as", "admin", "Deliver builds at once"},
    {"rule", "why", "x@example.com", "y@sales.example.test"},
    {"rules", "order", "--verify"},
    {"audit"},
};

const std::vector<Words> kChanging = {
    {"admin", "add", "helpdesk"},
    {"object", "add", "--as", "postmaster", "--type", "2", "New"},
    {"group", "modify", "Board", "--add", "new@example.test"},
    {"rules", "set-order", "spam"},
    {"settings", "set", "threads=8"},
    {"audit-trim", "--before", "2999-01-01"},
    {"policy", "raise", "1000"},
};

class ReadOnly : public zarotest::SampleInstallation {
 protected:
  struct Answer {
    Words command;
    ProgramResult result;
  };

  // What the user of the installation gets, who may write.
  std::vector<Answer> answersOfTheOwner() const {
    std::vector<Answer> answers;
    for (const Words& command : kReading) {
      answers.push_back({command, run(command)});
    }
    return answers;
  }

  // A reader of the installation in a directory gets the same.
  void expectSameFor(const std::string& directory, const std::vector<Answer>& answers) const {
    for (const auto& [command, expected] : answers) {
      const ProgramResult result = runIn(directory, command);
      EXPECT_EQ(result.status, expected.status) << testing::PrintToString(command) << result.out << result.err;
      if (command != Words{"check"}) {  // it tells more
        EXPECT_EQ(result.out, expected.out) << testing::PrintToString(command);
        EXPECT_EQ(result.err, expected.err) << testing::PrintToString(command);
      }
    }
  }

  void expectNoChangeBy(const std::string& directory) const {
    for (const Words& command : kChanging) {
      const ProgramResult result = runIn(directory, command);
      EXPECT_EQ(result.status, 77) << testing::PrintToString(command) << result.out << result.err;
    }
  }

  // As a user whom permissions stop.
  static ProgramResult runIn(const std::string& directory, const Words& command) {
    ProgramRun run;
    run.environment["ZARO_HOME"] = directory;
    run.obeysPermissions = true;
    return zarotest::zaroctl(command, run);
  }
};

class ReadOnlyFiles : public ReadOnly {
 protected:
  void SetUp() override {
    ReadOnly::SetUp();
    m_answers = answersOfTheOwner();
  }
  void TearDown() override { protect(false); }

  // Permissions of the database and of every directory.
  void protect(bool readOnly) const {
    const fs::perms writable = fs::perms::owner_write;
    const auto change = readOnly ? fs::perm_options::remove : fs::perm_options::add;
    for (const char* name : {"data/zaro.db", "data/zaro.db-wal", "data/zaro.db-shm", "data", "config", ""}) {
      std::error_code isNotThere;
      fs::permissions(homeFile(name), writable, change, isNotThere);
    }
  }
  static constexpr std::size_t kReadVersion = 19;  // in the header: 2 in WAL mode, otherwise 1

  std::vector<Answer> m_answers;
};

TEST_P(ReadOnlyFiles, databaseInWalModeIsRead) {
  ASSERT_EQ(zarotest::readFile(homeFile("data/zaro.db")).at(kReadVersion), 2);
  ASSERT_FALSE(fs::exists(homeFile("data/zaro.db-wal")));
  protect(true);
  expectSameFor(home(), m_answers);
  expectNoChangeBy(home());
  EXPECT_FALSE(fs::exists(homeFile("data/zaro.db-wal")));
}

TEST_P(ReadOnlyFiles, databaseInADirectoryThatMayNotBeWrittenIsRead) {
  fs::permissions(homeFile("data"), fs::perms::owner_write, fs::perm_options::remove);
  expectSameFor(home(), m_answers);
}

TEST_P(ReadOnlyFiles, databaseOfAWriterIsReadWithWhatIsInItsLog) {
  const auto writer = session();
  writer->run("INSERT INTO administrator (name) VALUES ('newcomer')");
  ASSERT_TRUE(fs::exists(homeFile("data/zaro.db-wal")));
  protect(true);
  EXPECT_EQ(runIn(home(), {"admin", "id", "newcomer"}).status, 0);
}

TEST_P(ReadOnlyFiles, logThatCannotBeReadIsNotLeftOut) {
  fs::path copy = homeFile("log");
  {
    const auto writer = session();
    writer->run("INSERT INTO administrator (name) VALUES ('newcomer')");
    fs::copy(homeFile("data/zaro.db-wal"), copy);
    fs::copy(homeFile("data/zaro.db"), homeFile("database"));
  }
  fs::rename(homeFile("database"), homeFile("data/zaro.db"));
  fs::rename(copy, homeFile("data/zaro.db-wal"));
  protect(true);
  const ProgramResult result = runIn(home(), {"admin", "id", "newcomer"});
  EXPECT_EQ(result.status, 77);
  EXPECT_THAT(result.err, HasSubstr("cannot be read without writing to " + homeFile("data/")));
  protect(false);
  EXPECT_EQ(run({"check"}).status, 0);
  protect(true);
  EXPECT_EQ(runIn(home(), {"admin", "id", "newcomer"}).status, 0);
}

TEST_P(ReadOnlyFiles, databaseWithoutALogIsRead) {
  replaceLine("config/odbc.ini", "Driver", "Driver=libsqlite3odbc.so\nJournalMode=DELETE");
  ASSERT_EQ(run({"admin", "id", "admin"}).status, 0);
  ASSERT_EQ(zarotest::readFile(homeFile("data/zaro.db")).at(kReadVersion), 1);
  protect(true);
  expectSameFor(home(), m_answers);
  expectNoChangeBy(home());
}

TEST_P(ReadOnlyFiles, backupIsMade) {
  protect(true);
  const std::string copy = directory().path("copy");
  const ProgramResult result = runIn(home(), {"backup", copy});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_TRUE(fs::exists(copy));
}

INSTANTIATE_TEST_SUITE_P(, ReadOnlyFiles, testing::Values(zarotest::Dialect::SQLite), zarotest::dialectTestName);

class ReadOnlyRole : public ReadOnly {
 protected:
  void SetUp() override {
    ReadOnly::SetUp();
    if (IsSkipped()) {
      return;
    }
    m_role = "zaro_reader_" + std::to_string(getpid());
    const auto owner = session();
    owner->run("CREATE ROLE " + m_role + " LOGIN PASSWORD 'reading'");
    owner->run("GRANT SELECT ON ALL TABLES IN SCHEMA public TO " + m_role);
    fs::copy(home(), reader(), fs::copy_options::recursive);
  }
  void TearDown() override {
    if (!m_role.empty()) {
      const auto owner = session();
      owner->run("DROP OWNED BY " + m_role);
      owner->run("DROP ROLE " + m_role);
    }
  }

  std::string reader() const { return directory().path("reader"); }

  void signInAsReader() const {
    const std::string ini = reader() + "/config/database.ini";
    std::string text = zarotest::readFile(ini);
    const std::size_t begin = text.find("UserId=");
    text.replace(begin, text.find('\n', begin) - begin, "UserId=" + m_role);
    directory().write("reader/config/database.ini", text);
    ProgramRun run;
    run.environment["ZARO_HOME"] = reader();
    run.input = "reading\n";
    ASSERT_EQ(zarotest::zaroctl({"password"}, run).status, 0);
  }

  std::string m_role;
};

TEST_P(ReadOnlyRole, readsEverythingAndChangesNothing) {
  const auto answers = answersOfTheOwner();
  signInAsReader();
  expectSameFor(reader(), answers);
  expectNoChangeBy(reader());
  session()->run("ALTER ROLE " + m_role + " SET default_transaction_read_only = on");
  expectSameFor(reader(), answers);
  expectNoChangeBy(reader());
}

TEST_P(ReadOnlyRole, userWhoseTransactionsOnlyReadIsTheSame) {
  const auto answers = answersOfTheOwner();
  session()->run("GRANT INSERT, UPDATE, DELETE ON ALL TABLES IN SCHEMA public TO " + m_role);
  session()->run("ALTER ROLE " + m_role + " SET default_transaction_read_only = on");
  signInAsReader();
  expectSameFor(reader(), answers);
  expectNoChangeBy(reader());
}

INSTANTIATE_TEST_SUITE_P(, ReadOnlyRole, testing::Values(zarotest::Dialect::PostgreSQL), zarotest::dialectTestName);

}  // namespace
