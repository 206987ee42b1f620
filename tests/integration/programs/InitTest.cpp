// zaroctl init: what a new installation holds, and that one which fails leaves nothing.
#include <signal.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <thread>

#include "ZaroRuntime/SchemaVersion.h"
#include "programs/ProgramTest.h"
#include "support/LoopbackServer.h"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using testing::UnorderedElementsAre;
using zarotest::Dialect;
using zarotest::linesOf;
using zarotest::ProgramResult;
using zarotest::ProgramRun;
using zarotest::readFile;
using zarotest::TemporaryDirectory;
using zarotest::zaroctl;

struct stat statusOf(const std::string& path) {
  struct stat status = {};
  EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
  return status;
}

mode_t modeOf(const std::string& path) {
  return statusOf(path).st_mode & 07777;
}

std::vector<std::string> namesIn(const std::string& directory) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(directory)) {
    names.push_back(entry.path().filename().string());
  }
  return names;
}

void append(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::app) << text;
}

// False when it has not come true in ten seconds.
bool waitUntil(const std::function<bool()>& holds) {
  for (int trial = 0; trial < 2000; ++trial) {
    if (holds()) {
      return true;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return false;
}

// Whether an init has begun to fill its directory, which is in `directory` until it is complete.
bool isAtWork(const std::string& directory) {
  const auto names = namesIn(directory);
  return std::any_of(names.begin(), names.end(),
                     [](const std::string& name) { return name.find(".new-") != std::string::npos; });
}

class Init : public zarotest::ProgramTest {
 protected:
  // A result that refuses in one line, prints no result and leaves nothing at the installation's place or beside it.
  void expectRefused(const ProgramResult& result, int status, const std::string& reason) {
    EXPECT_EQ(result.status, status);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, StartsWith("zaroctl: "));
    EXPECT_THAT(result.err, HasSubstr(reason));
    EXPECT_EQ(linesOf(result.err).size(), 1u) << result.err;
    EXPECT_THAT(namesIn(directory().path()), testing::Not(testing::Contains(testing::ContainsRegex("gateway"))));
  }

  const char* dialect() const { return GetParam() == Dialect::SQLite ? "sqlite" : "postgresql"; }

  // An init whose schema takes long enough for something to happen in the middle of the work.
  ProgramResult initMeanwhile(const std::string& target, const std::function<void(int pid)>& happens) {
    const char* const wait = GetParam() == Dialect::SQLite
                                 ? "\nWITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 6000000) "
                                   "SELECT count(*) FROM n;\n"
                                 : "\nSELECT pg_sleep(2);\n";
    return initMeanwhile(target, wait, happens);
  }

  // The same with something else at the end of the schema.
  ProgramResult initMeanwhile(const std::string& target, const std::string& schemaEnd,
                              const std::function<void(int pid)>& happens) {
    const std::string mine = directory().path("skeleton");
    zarotest::copySkeleton(mine);
    append(mine + "/sql/" + dialect() + "/schema.sql", schemaEnd);
    ProgramRun run;
    run.input = initInput();
    run.whileRunning = happens;
    return zaroctl(initArguments(target, {"--skeleton", mine}), run);
  }
};

TEST_P(Init, linesSayWhatWasMade) {
  const ProgramResult result = init(home());
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(linesOf(result.out),
              ElementsAre("home\t" + home(), std::string("database\t") + dialect(), "schema\tcreated",
                          "schema_version\t" + std::to_string(zaroruntime::kSchemaVersion), "sample\tno"));
}

TEST_P(Init, jsonSaysWhatWasMade) {
  const ProgramResult result = init(home(), {"--json", "--sample"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(nlohmann::json::parse(result.out), (nlohmann::json{{"home", home()},
                                                               {"database", dialect()},
                                                               {"schema", "created"},
                                                               {"schema_version", zaroruntime::kSchemaVersion},
                                                               {"sample", true},
                                                               {"policy_server", nullptr}}));
}

TEST_P(Init, secretsAreClosedToOthers) {
  mustInit();
  EXPECT_EQ(modeOf(home()), 0755u);
  EXPECT_EQ(modeOf(homeFile("config")), 0755u);
  EXPECT_EQ(modeOf(homeFile("config/database.ini")), 0640u);
  EXPECT_EQ(modeOf(homeFile("config/odbc.ini")), 0644u);
  EXPECT_EQ(modeOf(homeFile("config/secret.key")), 0600u);
  EXPECT_EQ(modeOf(homeFile("data")), 0700u);
  EXPECT_EQ(modeOf(homeFile("sql")), 0755u);
  EXPECT_EQ(modeOf(homeFile("sql/ui_GetAdminId.sql")), 0644u);
  if (GetParam() == Dialect::SQLite) {
    EXPECT_EQ(modeOf(homeFile("data/zaro.db")), 0600u);
  }
}

class InitSqlite : public Init {};
INSTANTIATE_TEST_SUITE_P(, InitSqlite, testing::Values(Dialect::SQLite), zarotest::dialectTestName);

TEST_P(InitSqlite, whatTheDriverLeavesBesideTheDatabaseIsClosedToOthers) {
  const TemporaryDirectory skeleton;
  zarotest::copySkeleton(skeleton.path("home"));
  append(skeleton.path("home/config/odbc.ini"), "JournalMode=PERSIST\n");
  mustInit({"--skeleton", skeleton.path("home")});
  ASSERT_THAT(namesIn(homeFile("data")), UnorderedElementsAre("zaro.db", "zaro.db-journal"));
  EXPECT_EQ(modeOf(homeFile("data/zaro.db-journal")), 0600u);
}

TEST_P(InitSqlite, fileSystemWithoutRoomLeavesNothingBehind) {
  ProgramRun run;
  run.largestFile = 40000;
  const ProgramResult result = zaroctl(initArguments(home()), run);
  expectRefused(result, 74, "disk I/O error");
  EXPECT_THAT(result.err, Not(HasSubstr("not known"))) << "nothing is in doubt where nothing is kept";
}

// SQLite writes the log, and closing the database fails to bring it into the file, and answers nothing.
TEST_P(InitSqlite, logThatCannotBeBroughtIntoTheDatabaseIsAFailure) {
  const TemporaryDirectory skeleton;
  zarotest::copySkeleton(skeleton.path("home"));
  append(skeleton.path("home/sql/sqlite/schema.sql"),
         "CREATE TABLE padding (content BLOB);\n"
         "INSERT INTO padding VALUES (zeroblob(4500000));\nCOMMIT;\nBEGIN IMMEDIATE;\n"
         "INSERT INTO padding VALUES (zeroblob(2000000));\n");
  ProgramRun run;
  run.largestFile = 5000000;
  expectRefused(zaroctl(initArguments(home(), {"--skeleton", skeleton.path("home")}), run), 74, "stands in its log only");
}

TEST_P(Init, permissionsDoNotDependOnTheUmask) {
  const mode_t before = umask(077);
  mustInit();
  umask(before);
  EXPECT_EQ(modeOf(home()), 0755u);
  EXPECT_EQ(modeOf(homeFile("config/zaro.ini")), 0644u);
}

TEST_P(Init, onlyTheStatementsOfTheDialectAreInstalled) {
  mustInit();
  const std::string begin = readFile(homeFile("sql/ui_StartTransaction.sql"));
  EXPECT_THAT(begin, StartsWith(GetParam() == Dialect::SQLite ? "BEGIN IMMEDIATE" : "BEGIN\n"));
  EXPECT_FALSE(fs::exists(homeFile("sql/sqlite")));
}

TEST_P(Init, commentsOfTheTemplatesStay) {
  mustInit();
  EXPECT_THAT(readFile(homeFile("config/database.ini")), HasSubstr("; A section of odbc.ini"));
  EXPECT_THAT(readFile(homeFile("config/odbc.ini")), HasSubstr("; The data sources of this installation"));
}

TEST_P(Init, placeIsTakenFromHomeOrTheVariable) {
  ProgramRun run;
  run.input = initInput();
  run.environment["ZARO_HOME"] = home();
  std::vector<std::string> arguments = initArguments(home());
  arguments.erase(arguments.begin() + 1);
  EXPECT_EQ(zaroctl(arguments, run).status, 0);
  EXPECT_TRUE(fs::exists(homeFile("config/secret.key")));
}

TEST_P(Init, variablesOfARunningInstallationDoNotMatter) {
  ProgramRun run;
  run.input = initInput();
  run.environment = {{"ZARO_DB_INI", "other.ini"}, {"ZARO_DB_DIR", "other"}};
  const ProgramResult result = zaroctl(initArguments(home()), run);
  EXPECT_EQ(result.status, 0) << result.err;
}

TEST_P(Init, emptyDirectoryIsFilledInPlace) {
  fs::create_directory(home());
  ASSERT_EQ(chmod(home().c_str(), 02750), 0);
  const auto before = statusOf(home());
  mustInit();
  const auto after = statusOf(home());
  EXPECT_EQ(after.st_ino, before.st_ino);
  EXPECT_EQ(after.st_mode, before.st_mode);
  EXPECT_EQ(modeOf(homeFile("config")), 0755u);
  EXPECT_EQ(modeOf(homeFile("config/secret.key")), 0600u);
  EXPECT_THAT(namesIn(home()), UnorderedElementsAre("config", "data", "resources", "sql"));
  EXPECT_EQ(run({"check"}).status, 0);
}

TEST_P(Init, directoryAboveAnEmptyOneNeedNotBeWritable) {
  const std::string inner = directory().path("above/gateway");
  fs::create_directories(inner);
  ASSERT_EQ(chmod(directory().path("above").c_str(), 0500), 0);
  ProgramRun run;
  run.input = initInput();
  run.obeysPermissions = true;
  const ProgramResult result = zaroctl(initArguments(inner), run);
  ASSERT_EQ(chmod(directory().path("above").c_str(), 0700), 0);
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_TRUE(fs::exists(inner + "/config/database.ini"));
}

TEST_P(Init, freshFileSystemIsAnEmptyDirectory) {
  fs::create_directories(homeFile("lost+found"));
  mustInit();
  EXPECT_THAT(namesIn(home()), UnorderedElementsAre("config", "data", "lost+found", "resources", "sql"));
}

TEST_P(Init, failureLeavesAnEmptyDirectoryEmpty) {
  fs::create_directory(home());
  const std::string mine = directory().path("skeleton");
  zarotest::copySkeleton(mine);
  append(mine + "/sql/" + dialect() + "/schema.sql", "\nCREATE GARBAGE;\n");
  EXPECT_EQ(init(home(), {"--skeleton", mine}).status, 69);
  EXPECT_TRUE(fs::is_empty(home()));
}

TEST_P(Init, slashAtTheEndAndRelativePathsAreTaken) {
  EXPECT_EQ(init(home() + "/").status, 0);
  EXPECT_EQ(run({"check"}).status, 0);
  const std::string other = directory().path("deeper");
  fs::create_directory(other);
  const ProgramResult result = init(other + "/../second//");
  EXPECT_THAT(result.out, HasSubstr("home\t" + directory().path("second") + "\n"));
}

TEST_P(Init, directoryWithFilesIsRefusedAndUntouched) {
  directory().write("full/file", "text");
  const ProgramResult result = init(directory().path("full"));
  expectRefused(result, 73, directory().path("full") + ": exists and is not empty");
  EXPECT_THAT(namesIn(directory().path("full")), ElementsAre("file"));
  EXPECT_EQ(readFile(directory().path("full/file")), "text");
}

TEST_P(Init, secondInitIsRefused) {
  mustInit();
  const std::string key = readFile(homeFile("config/secret.key"));
  const ProgramResult result = init(home());
  EXPECT_EQ(result.status, 73);
  EXPECT_THAT(result.err, HasSubstr("exists and is not empty"));
  EXPECT_EQ(readFile(homeFile("config/secret.key")), key);
  EXPECT_THAT(namesIn(directory().path()), ElementsAre("gateway"));
}

TEST_P(Init, fileInTheWayIsRefused) {
  directory().write("file", "text");
  expectRefused(init(directory().path("file")), 73, "exists and is not a directory");
  EXPECT_EQ(readFile(directory().path("file")), "text");
}

TEST_P(Init, linkToNothingIsRefused) {
  fs::create_symlink(directory().path("nothing"), directory().path("link"));
  expectRefused(init(directory().path("link")), 73, "link");
  EXPECT_FALSE(fs::exists(directory().path("nothing")));
}

TEST_P(Init, linkToAnEmptyDirectoryIsFollowed) {
  fs::create_directory(directory().path("real"));
  fs::create_symlink(directory().path("real"), directory().path("link"));
  const ProgramResult result = init(directory().path("link"));
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("home\t" + directory().path("real") + "\n"));
  EXPECT_TRUE(fs::exists(directory().path("link/config/database.ini")));
}

TEST_P(Init, missingDirectoryAboveIsRefused) {
  expectRefused(init(directory().path("none/here")), 73,
                directory().path("none") + ": cannot make an installation there");
}

TEST_P(Init, somethingElseThanASkeletonIsRefused) {
  expectRefused(init(home(), {"--skeleton", directory().path()}), 78, ": not the skeleton of an installation");
}

TEST_P(Init, skeletonIsTakenFromOptionOrVariable) {
  const std::string mine = directory().path("skeleton");
  zarotest::copySkeleton(mine);
  append(mine + "/config/zaro.ini", "\n[extra]\nkey=value\n");
  EXPECT_EQ(init(home(), {"--skeleton", mine}).status, 0);
  EXPECT_THAT(readFile(homeFile("config/zaro.ini")), HasSubstr("[extra]"));

  ProgramRun run;
  run.input = initInput();
  run.environment["ZARO_SKELETON"] = mine;
  EXPECT_EQ(zaroctl(initArguments(directory().path("second")), run).status, 0);
  EXPECT_THAT(readFile(directory().path("second/config/zaro.ini")), HasSubstr("[extra]"));
}

TEST_P(Init, brokenSchemaLeavesNothingBehind) {
  const std::string mine = directory().path("skeleton");
  zarotest::copySkeleton(mine);
  append(mine + "/sql/" + dialect() + "/schema.sql", "\nCREATE GARBAGE;\n");
  expectRefused(init(home(), {"--skeleton", mine}), 69, "schema.sql: line ");
  if (GetParam() == Dialect::PostgreSQL) {
    EXPECT_EQ(value("SELECT to_regclass('administrator')"), "NULL");
  }
}

TEST_P(Init, brokenSampleLeavesNothingBehindNotEvenASchema) {
  const std::string mine = directory().path("skeleton");
  zarotest::copySkeleton(mine);
  append(mine + "/sample/sample.sql", "\nINSERT INTO administrator (name) VALUES ('admin');\n");
  expectRefused(init(home(), {"--skeleton", mine, "--sample"}), 65, "sample.sql: line ");
  if (GetParam() == Dialect::PostgreSQL) {
    EXPECT_EQ(value("SELECT to_regclass('administrator')"), "NULL");
  }
}

TEST_P(Init, interruptedInitLeavesNothingBehind) {
  const ProgramResult result = initMeanwhile(home(), [this](int pid) {
    EXPECT_TRUE(waitUntil([this] { return isAtWork(directory().path()); }));
    kill(pid, SIGTERM);
  });
  EXPECT_EQ(result.status, 128 + SIGTERM);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "zaroctl: interrupted; nothing was made\n");
  EXPECT_THAT(namesIn(directory().path()), ElementsAre("skeleton"));
  if (GetParam() == Dialect::PostgreSQL) {
    EXPECT_EQ(value("SELECT to_regclass('administrator')"), "NULL");
  }
}

TEST_P(Init, ignoredSignalIsIgnored) {
  signal(SIGHUP, SIG_IGN);  // the program starts with it, as under nohup
  const ProgramResult result = initMeanwhile(home(), [this](int pid) {
    EXPECT_TRUE(waitUntil([this] { return isAtWork(directory().path()); }));
    kill(pid, SIGHUP);
  });
  signal(SIGHUP, SIG_DFL);
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(run({"check"}).status, 0);
}

TEST_P(Init, placeThatIsTakenMeanwhileIsRefusedAndUntouched) {
  const ProgramResult result = initMeanwhile(home(), [this](int) {
    EXPECT_TRUE(waitUntil([this] { return isAtWork(directory().path()); }));
    fs::create_directory(home());
  });
  EXPECT_EQ(result.status, 73);
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(result.err, HasSubstr(home() + ": cannot be made: File exists"));
  EXPECT_THAT(namesIn(directory().path()), UnorderedElementsAre("skeleton", "gateway"));
  EXPECT_TRUE(fs::is_empty(home()));
}

TEST_P(Init, directoryThatIsFilledMeanwhileGetsNothing) {
  fs::create_directory(home());
  const ProgramResult result = initMeanwhile(home(), [this](int) {
    EXPECT_TRUE(waitUntil([this] { return isAtWork(home()); }));
    directory().write("gateway/sql/mine", "text");
  });
  EXPECT_EQ(result.status, 73);
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(result.err, HasSubstr(homeFile("sql") + ": cannot be made: File exists"));
  EXPECT_THAT(namesIn(home()), ElementsAre("sql"));
  EXPECT_THAT(namesIn(homeFile("sql")), ElementsAre("mine"));
}

// The installation stands then, and a second init would be refused.
TEST_P(Init, directoryAboveThatCannotBeBroughtToDiskIsAWarning) {
  directory().write("above/file", "");
  fs::remove(directory().path("above/file"));
  ASSERT_EQ(chmod(directory().path("above").c_str(), 0300), 0);  // writing an entry is allowed, opening is not
  ProgramRun run;
  run.input = initInput();
  run.obeysPermissions = true;
  const ProgramResult result = zaroctl(initArguments(directory().path("above/gateway")), run);
  ASSERT_EQ(chmod(directory().path("above").c_str(), 0700), 0);
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, StartsWith("home\t" + directory().path("above/gateway") + "\n"));
  EXPECT_EQ(result.err, "zaroctl: warning: " + directory().path("above") +
                            ": cannot open: Permission denied; it is done, but a power failure now could undo it\n");
  EXPECT_TRUE(fs::exists(directory().path("above/gateway/config/database.ini")));
}

TEST_P(Init, twoAtOnceMakeOneInstallation) {
  ProgramResult first;
  ProgramResult second;
  // On a server they would meet in the database too, where either may lose.
  std::thread other([&] { second = init(home()); });
  first = init(home());
  other.join();
  EXPECT_LE((first.status == 0) + (second.status == 0), 1);
  if (GetParam() == Dialect::SQLite) {
    EXPECT_EQ((first.status == 0) + (second.status == 0), 1) << first.err << second.err;
    EXPECT_THAT(namesIn(directory().path()), ElementsAre("gateway"));
    EXPECT_EQ(run({"check"}).status, 0);
  }
}

ZARO_ON_EVERY_DATABASE(Init);

TEST_P(Init, twoAtOnceMakeOneInstallationInAnEmptyDirectory) {
  fs::create_directory(home());
  ProgramResult first;
  ProgramResult second;
  std::thread other([&] { second = init(home()); });
  first = init(home());
  other.join();
  EXPECT_LE((first.status == 0) + (second.status == 0), 1);
  if (GetParam() == Dialect::SQLite) {
    EXPECT_EQ((first.status == 0) + (second.status == 0), 1) << first.err << second.err;
    EXPECT_THAT(namesIn(home()), UnorderedElementsAre("config", "data", "resources", "sql"));
    EXPECT_EQ(run({"check"}).status, 0);
  }
}

class InitPostgresql : public Init {};

// What runs at the end of the transaction takes long enough for the signal to come while it commits.
TEST_P(InitPostgresql, signalWhileTheDatabaseCommitsComesTooLate) {
  const ProgramResult result = initMeanwhile(
      home(),
      "\nCREATE TABLE slow (x INTEGER);\n"
      "CREATE FUNCTION slow() RETURNS trigger LANGUAGE plpgsql AS $$BEGIN PERFORM pg_sleep(2); RETURN NULL; END$$;\n"
      "CREATE CONSTRAINT TRIGGER slow AFTER INSERT ON slow DEFERRABLE INITIALLY DEFERRED "
      "FOR EACH ROW EXECUTE FUNCTION slow();\n"
      "INSERT INTO slow VALUES (1);\n",
      [this](int pid) {
        const auto observer = session();
        EXPECT_TRUE(waitUntil([&] {
          return observer->value(
                     "SELECT count(*) FROM pg_stat_activity "
                     "WHERE datname = current_database() AND state = 'active' AND query = 'COMMIT'") == "1";
        }));
        kill(pid, SIGTERM);
      });
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(result.out, StartsWith("home\t" + home() + "\n"));
  EXPECT_EQ(run({"check"}).status, 0);
}

TEST_P(InitPostgresql, directoryThatFailsAfterTheDatabaseIsToldSo) {
  const ProgramResult result = initMeanwhile(home(), [this](int) {
    EXPECT_TRUE(waitUntil([this] { return isAtWork(directory().path()); }));
    fs::create_directory(home());
  });
  EXPECT_THAT(result.err, HasSubstr("File exists; database " + value("SELECT current_database()") +
                                    " has been filled already: init without --sample keeps what it holds\n"));
  EXPECT_EQ(init(home()).status, 0);
  EXPECT_EQ(run({"check"}).status, 0);
}

TEST_P(InitPostgresql, existingSchemaIsKeptWithItsData) {
  mustInit({"--sample"});
  const ProgramResult second = init(directory().path("second"));
  EXPECT_EQ(second.status, 0);
  EXPECT_THAT(second.out, HasSubstr("schema\tkept\n"));
  EXPECT_EQ(value("SELECT count(*) FROM administrator"), "6");
}

TEST_P(InitPostgresql, sampleGoesIntoAnEmptySchemaOnly) {
  mustInit();
  EXPECT_EQ(init(directory().path("second"), {"--sample"}).status, 0);
  EXPECT_EQ(value("SELECT count(*) FROM administrator"), "6");
  const ProgramResult third = init(directory().path("third"), {"--sample"});
  EXPECT_EQ(third.status, 77);
  EXPECT_THAT(third.err, HasSubstr("holds data already; the sample is for an empty one"));
  EXPECT_FALSE(fs::exists(directory().path("third")));
}

TEST_P(InitPostgresql, schemaOfAnotherVersionIsRefused) {
  mustInit();
  session()->run("INSERT INTO schema_version (version) VALUES (7000)");
  const ProgramResult second = init(directory().path("second"));
  EXPECT_EQ(second.status, 78);
  EXPECT_THAT(second.err, HasSubstr(": schema version 7000, but this program works on version "));
  EXPECT_FALSE(fs::exists(directory().path("second")));
}

TEST_P(InitPostgresql, tablesOfSomebodyElseAreRefusedAndUntouched) {
  session()->run("CREATE TABLE entity (x INTEGER)");
  expectRefused(init(home()), 69, "entity");
  EXPECT_EQ(value("SELECT to_regclass('administrator')"), "NULL");
  EXPECT_EQ(value("SELECT count(*) FROM entity"), "0");
}

TEST_P(InitPostgresql, unknownDatabaseIsRefused) {
  expectRefused(init(home(), {"--database", "no_such_database"}), 78, "\"no_such_database\" does not exist");
}

TEST_P(InitPostgresql, serverThatDemandsNoEncryptionIsRefusedWhereItIsRequired) {
  expectRefused(init(home(), {"--sslmode", "require"}), 78, "server does not support SSL, but SSL was required");
}

TEST_P(InitPostgresql, settingsGoToTheirFiles) {
  mustInit({"--sslmode", "allow"});
  const auto server = *zarotest::postgresqlServer();
  const std::string odbc = readFile(homeFile("config/odbc.ini"));
  EXPECT_THAT(odbc, HasSubstr("\nDriver=psqlodbcw.so\n"));
  EXPECT_THAT(odbc, HasSubstr("\nServername=" + server.host + "\n"));
  EXPECT_THAT(odbc, HasSubstr("\nPort=" + server.port + "\n"));
  EXPECT_THAT(odbc, HasSubstr("\nSSLmode=allow\n"));
  EXPECT_THAT(readFile(homeFile("config/database.ini")), HasSubstr("\nUserId=" + server.user + "\n"));
}

INSTANTIATE_TEST_SUITE_P(, InitPostgresql, testing::Values(Dialect::PostgreSQL), zarotest::dialectTestName);

// No server is needed to be refused by one.
class InitUnreachable : public testing::Test {
 protected:
  ProgramResult init(const std::vector<std::string>& more) const {
    std::vector<std::string> arguments = {"init", m_directory.path("gateway"), "--db", "postgresql"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    ProgramRun run;
    run.input = "topsecret\n";
    return zaroctl(arguments, run);
  }

  TemporaryDirectory m_directory;
};

TEST_F(InitUnreachable, serverThatIsNotThereIsNamedInOneLine) {
  std::string port;
  {
    const zarotest::LoopbackServer gone(zarotest::LoopbackServer::Manner::HangUp);
    port = gone.port();
  }
  const ProgramResult result = init({"--host", "127.0.0.1", "--port", port});
  EXPECT_EQ(result.status, 75);
  EXPECT_THAT(result.err, HasSubstr("port " + port));
  EXPECT_EQ(linesOf(result.err).size(), 1u);
  EXPECT_THAT(result.err, testing::Not(HasSubstr("topsecret")));
  EXPECT_THAT(namesIn(m_directory.path()), IsEmpty());
}

TEST_F(InitUnreachable, valuesThatASettingsFileCannotHoldAreRefused) {
  const std::pair<const char*, int> kValues[] = {{"a\nb", 65}, {" a", 65}, {"a;b", 78}};
  for (const auto& [value, status] : kValues) {
    const ProgramResult result = init({"--host", "127.0.0.1", "--user", value});
    EXPECT_EQ(result.status, status) << value;
    EXPECT_EQ(linesOf(result.err).size(), 1u) << result.err;
    EXPECT_THAT(namesIn(m_directory.path()), IsEmpty());
  }
}

}  // namespace
