// Configuration: what Init reads, builds and hands on, and how it fails.
#include <array>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "ConfigFileOnDisk.h"
#include "InstallationTest.h"
#include "KxDataAccess.h"
#include "NothrowAllocationFailure.h"
#include "ProcessTest.h"
#include "RdbmsInterface.h"
#include "scripted/Prelude.h"

namespace {

using ZARO::RdbmsInterface;

using Texts = std::vector<std::string>;

std::string repeated(std::size_t count, char letter) {
  return std::string(count, letter);
}

// Makes and destroys one object.
void makeObject() {
  const RdbmsInterface db;
}

// How the library opened its last connection by itself: `("init string", "dsn", "user", "pass")`.
std::string connectArguments() {
  platform().calls.clear();
  makeObject();
  for (const std::string& call : platform().calls.beginningWith("KxDbConnect#")) {
    const std::size_t at = call.find(".connect(");
    if (at != std::string::npos) {
      return call.substr(at + 8);
    }
  }
  return "no connection was opened";
}

std::string arguments(const std::string& initString, const std::string& dsn, const std::string& user,
                      const std::string& pass) {
  return "(\"" + initString + "\", \"" + dsn + "\", \"" + user + "\", \"" + pass + "\")";
}

class RdbmsInit : public InstallationTest {};

// --- Paths ---

struct PathCase {
  const char* label;
  const char* home;
  std::optional<std::string> sqlDirectory;  // ZARO_DB_DIR
  std::optional<std::string> iniName;       // ZARO_DB_INI
  const char* wantSqlPath;
  const char* wantIniPath;
};

const PathCase kPathCases[] = {
    {"plain", "/opt/gw", {}, {}, "/opt/gw/sql", "/opt/gw/config/database.ini"},
    {"slash at the end", "/opt/gw/", {}, {}, "/opt/gw/sql", "/opt/gw/config/database.ini"},
    {"two slashes at the end", "/opt/gw//", {}, {}, "/opt/gw//sql", "/opt/gw//config/database.ini"},
    {"backslash at the end", "C:\\gw\\", {}, {}, "C:\\gw\\sql", "C:\\gw\\config/database.ini"},
    {"backslash inside", "C:\\gw", {}, {}, "C:\\gw/sql", "C:\\gw/config/database.ini"},
    {"root", "/", {}, {}, "/sql", "/config/database.ini"},
    {"empty", "", {}, {}, "/sql", "/config/database.ini"},
    {"relative", "gw", {}, {}, "gw/sql", "gw/config/database.ini"},
    {"blanks", "/opt/my gw", {}, {}, "/opt/my gw/sql", "/opt/my gw/config/database.ini"},
    {"percent signs", "/opt/%s%n", {}, {}, "/opt/%s%n/sql", "/opt/%s%n/config/database.ini"},
    {"other ini file", "/opt/gw", {}, "other.ini", "/opt/gw/sql", "/opt/gw/config/other.ini"},
    {"ini file in a directory", "/opt/gw", {}, "a/b.ini", "/opt/gw/sql", "/opt/gw/config/a/b.ini"},
    {"empty ini name", "/opt/gw", {}, "", "/opt/gw/sql", "/opt/gw/config/"},
    {"sql directory", "/opt/gw", "mssql", {}, "/opt/gw/sql/mssql", "/opt/gw/config/database.ini"},
    {"empty sql directory", "/opt/gw", "", {}, "/opt/gw/sql/", "/opt/gw/config/database.ini"},
    {"both, and a backslash", "C:\\gw\\", "x", "y.ini", "C:\\gw\\sql/x", "C:\\gw\\config/y.ini"},
};

void checkPaths(const PathCase& c) {
  platform().environment.set("ZARO_HOME", c.home);
  if (c.sqlDirectory) {
    platform().environment.set("ZARO_DB_DIR", *c.sqlDirectory);
  }
  if (c.iniName) {
    platform().environment.set("ZARO_DB_INI", *c.iniName);
  }
  platform().ini.open(c.wantIniPath);

  EXPECT_TRUE(RdbmsInterface::Init("d", "u", "p", "b"));
  EXPECT_STREQ(RdbmsInterface::GetSqlPath(), c.wantSqlPath);
  EXPECT_STREQ(RdbmsInterface::GetConfigFilePath(), c.wantIniPath);
  EXPECT_THAT(platform().calls.beginningWith("ConfigFileOnDisk("),
              ElementsAre("ConfigFileOnDisk(\"" + std::string(c.wantIniPath) + "\")"));
}

TEST_F(RdbmsInit, pathsFollowTheEnvironment) {
  for (const PathCase& c : kPathCases) {
    SCOPED_TRACE(c.label);
    runInOwnProcess([&] { checkPaths(c); });
  }
}

TEST_F(RdbmsInit, pathsAreEmptyBefore) {
  EXPECT_STREQ(RdbmsInterface::GetSqlPath(), "");
  EXPECT_STREQ(RdbmsInterface::GetConfigFilePath(), "");
}

PROCESS_TEST_F(RdbmsInit, statementFilesAreReadFromTheSqlDirectory) {
  platform().environment.set("ZARO_DB_DIR", "mssql");
  ASSERT_TRUE(initPlain());
  RdbmsInterface db;
  EXPECT_TRUE(db.startTransaction());
  EXPECT_EQ(platform().statements.last().directory, "/opt/gw/sql/mssql");
}

PROCESS_TEST_F(RdbmsInit, everyCallReadsTheEnvironmentAnew) {
  platform().environment.set("ZARO_HOME", "/nowhere");
  EXPECT_FALSE(initPlain());
  EXPECT_STREQ(RdbmsInterface::GetConfigFilePath(), "/nowhere/config/database.ini");
  platform().environment.set("ZARO_HOME", "/opt/gw");
  EXPECT_TRUE(initPlain());
  EXPECT_STREQ(RdbmsInterface::GetConfigFilePath(), "/opt/gw/config/database.ini");
  EXPECT_STREQ(RdbmsInterface::GetSqlPath(), "/opt/gw/sql");
}

// --- Refusals of the configuration ---

struct RefusalCase {
  const char* label;
  bool home;       // ZARO_HOME is set
  bool opened;     // the ini file opens
  Texts keys;      // that the file holds
  Texts given;     // texts of the caller, by key
  Texts wantLogs;  // all of level 1
};

const char* const kNoDsn =
    "RdbmsInterface::init: ERROR: could read parameter \"DataSourceName\"from section Database_Settings in file /opt/gw/config/database.ini";
const char* const kNoUser =
    "RdbmsInterface::init: ERROR: could read parameter \"UserId\"from section Database_Settings in file /opt/gw/config/database.ini";
const char* const kNoDatabase =
    "RdbmsInterface::init: ERROR: could read parameter \"Database\"from section Database_Settings in file /opt/gw/config/database.ini";
const char* const kDsnUnread =
    "RdbmsInterface::getDbParams: Could not read DataSourceName from config file /opt/gw/config/database.ini";
const char* const kUserUnread =
    "RdbmsInterface::getDbParams: Could not read UserId from config file /opt/gw/config/database.ini";
const char* const kDatabaseUnread =
    "RdbmsInterface::getDbParams: Could not read Database from config file /opt/gw/config/database.ini";
const char* const kNoHome = "RdbmsInterface::_getInitString: Environment variable \"ZARO_HOME\" not set";
const char* const kNotOpened = "RdbmsInterface::_getInitString: Could not open config file /opt/gw/config/database.ini";

const char* const kDsnKey = "DataSourceName";
const char* const kUserKey = "UserId";
const char* const kPassKey = "Password";
const char* const kDatabaseKey = "Database";

const RefusalCase kRefusalCases[] = {
    {"no home", false, true, {kDsnKey, kUserKey, kPassKey, kDatabaseKey}, {}, {kNoHome}},
    {"no home, everything given", false, true, {}, {kDsnKey, kUserKey, kPassKey, kDatabaseKey}, {kNoHome}},
    {"file not opened", true, false, {}, {}, {kNotOpened}},
    {"file not opened, everything given", true, false, {}, {kDsnKey, kUserKey, kPassKey, kDatabaseKey}, {kNotOpened}},
    {"empty file: only the first key is reported", true, true, {}, {}, {kNoDsn, kDsnUnread}},
    {"no data source", true, true, {kUserKey, kPassKey, kDatabaseKey}, {}, {kNoDsn, kDsnUnread}},
    {"no user", true, true, {kDsnKey, kPassKey, kDatabaseKey}, {}, {kNoUser, kUserUnread}},
    {"no user and no database", true, true, {kDsnKey, kPassKey}, {}, {kNoUser, kUserUnread}},
    {"data source given, no user", true, true, {kPassKey, kDatabaseKey}, {kDsnKey}, {kNoUser, kUserUnread}},
    {"no database", true, true, {kDsnKey, kUserKey, kPassKey}, {}, {kNoDatabase, kDatabaseUnread}},
    {"no database, no password", true, true, {kDsnKey, kUserKey}, {}, {kNoDatabase, kDatabaseUnread}},
    {"all but the database given", true, true, {}, {kDsnKey, kUserKey, kPassKey}, {kNoDatabase, kDatabaseUnread}},
};

class RefusedInit : public InstallationTest {
 protected:
  void check(const RefusalCase& c) {
    if (!c.home) {
      platform().environment.unset("ZARO_HOME");
    }
    platform().ini.reset();
    if (c.opened) {
      platform().ini.open(kIniPath);
    }
    for (const std::string& key : c.keys) {
      setKey(key.c_str(), "value");
    }
    const auto given = [&](const char* key) -> const char* {
      return std::find(c.given.begin(), c.given.end(), key) != c.given.end() ? "given" : nullptr;
    };
    const char* const dsn = given(kDsnKey);
    const char* const user = given(kUserKey);
    const char* const pass = given(kPassKey);
    const char* const database = given(kDatabaseKey);

    EXPECT_FALSE(RdbmsInterface::Init(dsn, user, pass, database));
    EXPECT_EQ(platform().log.texts(LogLevel::Error), c.wantLogs);
    EXPECT_EQ(platform().log.lines().size(), c.wantLogs.size());

    platform().log.clear();
    KxDataAccess* pool = nullptr;
    EXPECT_FALSE(RdbmsInterface::Init(4, &pool, dsn, user, pass, database));
    EXPECT_EQ(pool, nullptr);
    EXPECT_EQ(platform().log.texts(LogLevel::Error), c.wantLogs);
    EXPECT_EQ(platform().log.texts(LogLevel::Trace), Texts{"RdbmsInterface: Init() ...\n"});
    EXPECT_THAT(platform().calls.beginningWith("KxDataAccess"), IsEmpty());
  }
};

TEST_F(RefusedInit, reportsTheFirstThingMissing) {
  for (const RefusalCase& c : kRefusalCases) {
    SCOPED_TRACE(c.label);
    runInOwnProcess([&] { check(c); });
  }
}

PROCESS_TEST_F(RefusedInit, leavesThePathsSet) {
  forgetKeys();
  platform().environment.set("ZARO_DB_DIR", "mssql");
  EXPECT_FALSE(initPlain());
  EXPECT_STREQ(RdbmsInterface::GetSqlPath(), "/opt/gw/sql/mssql");
  EXPECT_STREQ(RdbmsInterface::GetConfigFilePath(), kIniPath);
}

PROCESS_TEST_F(RefusedInit, leavesThePathsOfTheCallBeforeWhenTheHomeIsGone) {
  forgetKeys();
  EXPECT_FALSE(initPlain());
  platform().environment.unset("ZARO_HOME");
  EXPECT_FALSE(initPlain());
  EXPECT_STREQ(RdbmsInterface::GetConfigFilePath(), kIniPath);
}

PROCESS_TEST_F(RefusedInit, opensNoFileWithoutHome) {
  platform().environment.unset("ZARO_HOME");
  EXPECT_FALSE(initPlain());
  EXPECT_THAT(platform().calls.beginningWith("ConfigFileOnDisk"), IsEmpty());
  EXPECT_STREQ(RdbmsInterface::GetSqlPath(), "");
  EXPECT_STREQ(RdbmsInterface::GetConfigFilePath(), "");
}

PROCESS_TEST_F(RefusedInit, leavesTheConnectionStringOfBefore) {
  forgetKeys();
  EXPECT_FALSE(initPlain());
  EXPECT_EQ(connectArguments(), arguments("", "", "", ""));
}

PROCESS_TEST_F(RefusedInit, mayBeTriedAgain) {
  forgetKeys();
  EXPECT_FALSE(initPlain());
  EXPECT_FALSE(initPooled());
  setKey("DataSourceName", "d");
  setKey("UserId", "u");
  setKey("Database", "b");
  EXPECT_TRUE(initPlain());
  EXPECT_EQ(connectArguments(), arguments("ODBC;DRIVER=;DSN=d;UID=u;PWD=;DATABASE=b", "d", "u", ""));
}

// --- Values ---

struct ValueCase {
  const char* label;
  std::array<const char*, 4> inFile;  // data source, user, password, database; null: the key is missing
  std::array<const char*, 4> given;   // null: read from the file
  const char* wantInitString;
  const char* wantDsn;
  const char* wantUser;
  const char* wantPass;
};

const ValueCase kValueCases[] = {
    {"all from the file", {"fd", "fu", "fp", "fb"}, {}, "ODBC;DRIVER=;DSN=fd;UID=fu;PWD=fp;DATABASE=fb", "fd", "fu", "fp"},
    {"all given",
     {"fd", "fu", "fp", "fb"},
     {"gd", "gu", "gp", "gb"},
     "ODBC;DRIVER=;DSN=gd;UID=gu;PWD=gp;DATABASE=gb",
     "gd",
     "gu",
     "gp"},
    {"all given, empty file", {}, {"gd", "gu", "gp", "gb"}, "ODBC;DRIVER=;DSN=gd;UID=gu;PWD=gp;DATABASE=gb", "gd", "gu", "gp"},
    {"all given and empty", {"fd", "fu", "fp", "fb"}, {"", "", "", ""}, "ODBC;DRIVER=;DSN=;UID=;PWD=;DATABASE=", "", "", ""},
    {"data source given", {nullptr, "fu", "fp", "fb"}, {"gd"}, "ODBC;DRIVER=;DSN=gd;UID=fu;PWD=fp;DATABASE=fb", "gd", "fu", "fp"},
    {"user given",
     {"fd", nullptr, "fp", "fb"},
     {nullptr, "gu"},
     "ODBC;DRIVER=;DSN=fd;UID=gu;PWD=fp;DATABASE=fb",
     "fd",
     "gu",
     "fp"},
    {"password given",
     {"fd", "fu", nullptr, "fb"},
     {nullptr, nullptr, "gp"},
     "ODBC;DRIVER=;DSN=fd;UID=fu;PWD=gp;DATABASE=fb",
     "fd",
     "fu",
     "gp"},
    {"database given",
     {"fd", "fu", "fp", nullptr},
     {nullptr, nullptr, nullptr, "gb"},
     "ODBC;DRIVER=;DSN=fd;UID=fu;PWD=fp;DATABASE=gb",
     "fd",
     "fu",
     "fp"},
    {"no password anywhere", {"fd", "fu", nullptr, "fb"}, {}, "ODBC;DRIVER=;DSN=fd;UID=fu;PWD=;DATABASE=fb", "fd", "fu", ""},
    {"empty values in the file", {"", "", "", ""}, {}, "ODBC;DRIVER=;DSN=;UID=;PWD=;DATABASE=", "", "", ""},
    {"encrypted in the file",
     {"fd", "fu", "ENC1", "fb"},
     {},
     "ODBC;DRIVER=;DSN=fd;UID=fu;PWD=clear;DATABASE=fb",
     "fd",
     "fu",
     "clear"},
    {"encrypted by the caller",
     {"fd", "fu", "fp", "fb"},
     {nullptr, nullptr, "ENC1"},
     "ODBC;DRIVER=;DSN=fd;UID=fu;PWD=clear;DATABASE=fb",
     "fd",
     "fu",
     "clear"},
    {"decrypts to nothing", {"fd", "fu", "ENC0", "fb"}, {}, "ODBC;DRIVER=;DSN=fd;UID=fu;PWD=;DATABASE=fb", "fd", "fu", ""},
    {"decrypts to something longer",
     {"fd", "fu", "E", "fb"},
     {},
     "ODBC;DRIVER=;DSN=fd;UID=fu;PWD=much longer than what is stored;DATABASE=fb",
     "fd",
     "fu",
     "much longer than what is stored"},
    {"signs of the format",
     {"%s", "%d%n", "p;DATABASE=x", "{b}"},
     {},
     "ODBC;DRIVER=;DSN=%s;UID=%d%n;PWD=p;DATABASE=x;DATABASE={b}",
     "%s",
     "%d%n",
     "p;DATABASE=x"},
};

class InitValues : public InstallationTest {
 protected:
  void check(const ValueCase& c) {
    const char* const keys[] = {kDsnKey, kUserKey, kPassKey, kDatabaseKey};
    forgetKeys();
    for (std::size_t at = 0; at < 4; ++at) {
      if (c.inFile[at] != nullptr) {
        setKey(keys[at], c.inFile[at]);
      }
    }
    platform().passwords.decrypt("ENC1", "clear");
    platform().passwords.decrypt("ENC0", "");
    platform().passwords.decrypt("E", "much longer than what is stored");

    EXPECT_TRUE(RdbmsInterface::Init(c.given[0], c.given[1], c.given[2], c.given[3]));
    EXPECT_THAT(platform().log.lines(), IsEmpty());
    EXPECT_EQ(connectArguments(), arguments(c.wantInitString, c.wantDsn, c.wantUser, c.wantPass));
  }
};

TEST_F(InitValues, comeFromTheCallerOrTheFile) {
  for (const ValueCase& c : kValueCases) {
    SCOPED_TRACE(c.label);
    runInOwnProcess([&] { check(c); });
  }
}

PROCESS_TEST_F(InitValues, passwordIsUsedAsWrittenWhenDecryptionSpoilsItAndFails) {
  platform().passwords.spoilWhatFails();
  ASSERT_TRUE(initPlain());
  EXPECT_EQ(connectArguments(), arguments(kInitString, "gateway", "policy", "secret"));
}

PROCESS_TEST_F(InitValues, callersPasswordIsNotWrittenTo) {
  platform().passwords.spoilWhatFails();
  const char pass[] = "mine";
  ASSERT_TRUE(RdbmsInterface::Init(nullptr, nullptr, pass, nullptr));
  EXPECT_STREQ(pass, "mine");
}

PROCESS_TEST_F(InitValues, missingPasswordIsWhatTheReaderLeft) {
  forgetKeys();
  platform().ini.leaveWhenMissing("left");
  ASSERT_TRUE(RdbmsInterface::Init("d", "u", nullptr, "b"));
  EXPECT_THAT(platform().log.lines(), IsEmpty());
  EXPECT_EQ(connectArguments(), arguments("ODBC;DRIVER=;DSN=d;UID=u;PWD=left;DATABASE=b", "d", "u", "left"));
}

PROCESS_TEST_F(InitValues, longPasswordDecryptsInPlace) {
  const std::string stored = repeated(2000, 'E');
  platform().passwords.decrypt(stored, repeated(1999, 'p'));
  ASSERT_TRUE(RdbmsInterface::Init("d", "u", stored.c_str(), "b"));
  const std::string want = ("ODBC;DRIVER=;DSN=d;UID=u;PWD=" + repeated(1999, 'p')).substr(0, 511);
  EXPECT_EQ(connectArguments(), arguments(want, "d", "u", repeated(255, 'p')));
}

PROCESS_TEST_F(InitValues, nothingIsReadThatTheCallerGave) {
  ASSERT_TRUE(RdbmsInterface::Init("d", "u", "p", "b"));
  EXPECT_THAT(platform().calls.all(),
              ElementsAre("ConfigFileOnDisk(\"/opt/gw/config/database.ini\")", "NewDecryptStr(\"p\")"));
}

PROCESS_TEST_F(InitValues, areReadInOrder) {
  ASSERT_TRUE(initPlain());
  EXPECT_THAT(platform().calls.all(),
              ElementsAre("ConfigFileOnDisk(\"/opt/gw/config/database.ini\")",
                          "ConfigFileOnDisk.getValue(\"Database_Settings\", \"DataSourceName\")",
                          "ConfigFileOnDisk.getValue(\"Database_Settings\", \"UserId\")",
                          "ConfigFileOnDisk.getValue(\"Database_Settings\", \"Password\")", "NewDecryptStr(\"secret\")",
                          "ConfigFileOnDisk.getValue(\"Database_Settings\", \"Database\")"));
}

struct LengthCase {
  const char* label;
  std::size_t dsn, user, pass, database;  // characters
};

// The frame of the connection string has 37 characters: "ODBC;DRIVER=;DSN=", ";UID=", ";PWD=", ";DATABASE=".
const LengthCase kLengthCases[] = {
    {"data source kept", 255, 1, 1, 1},
    {"data source cut", 256, 1, 1, 1},
    {"data source of 300", 300, 1, 1, 1},
    {"data source beyond the connection string", 600, 1, 1, 1},
    {"user kept", 1, 255, 1, 1},
    {"user cut", 1, 256, 1, 1},
    {"password kept", 1, 1, 255, 1},
    {"password cut", 1, 1, 256, 1},
    {"connection string just fits", 1, 1, 1, 471},
    {"connection string one too long", 1, 1, 1, 472},
    {"everything too long", 1000, 1000, 1000, 1000},
};

void checkLengths(const LengthCase& c) {
  const std::string dsn = repeated(c.dsn, 'd');
  const std::string user = repeated(c.user, 'u');
  const std::string pass = repeated(c.pass, 'p');
  const std::string database = repeated(c.database, 'b');
  const std::string full = "ODBC;DRIVER=;DSN=" + dsn + ";UID=" + user + ";PWD=" + pass + ";DATABASE=" + database;

  ASSERT_TRUE(RdbmsInterface::Init(dsn.c_str(), user.c_str(), pass.c_str(), database.c_str()));
  EXPECT_EQ(connectArguments(),
            arguments(full.substr(0, 511), dsn.substr(0, 255), user.substr(0, 255), pass.substr(0, 255)));
}

TEST_F(InitValues, areCutToTheirLengths) {
  for (const LengthCase& c : kLengthCases) {
    SCOPED_TRACE(c.label);
    runInOwnProcess([&] { checkLengths(c); });
  }
}

// --- The pool ---

class PooledInit : public InstallationTest {
 protected:
  static Texts linesOfSuccess() {
    return {"RdbmsInterface: Init() ...\n",
            std::string("RdbmsInterface: Init() connection string is ") + kInitString + "\n",
            "RdbmsInterface: Init() data access is ready\n"};
  }
};

PROCESS_TEST_F(PooledInit, opensThePoolInOrder) {
  KxDataAccess* pool = nullptr;
  ASSERT_TRUE(initPooled(&pool));
  EXPECT_NE(pool, nullptr);
  const std::string init = kInitString;
  EXPECT_THAT(platform().calls.all(),
              ElementsAre("log(4, \"RdbmsInterface: Init() ...\n\")", "ConfigFileOnDisk(\"/opt/gw/config/database.ini\")",
                          "ConfigFileOnDisk.getValue(\"Database_Settings\", \"DataSourceName\")",
                          "ConfigFileOnDisk.getValue(\"Database_Settings\", \"UserId\")",
                          "ConfigFileOnDisk.getValue(\"Database_Settings\", \"Password\")", "NewDecryptStr(\"secret\")",
                          "ConfigFileOnDisk.getValue(\"Database_Settings\", \"Database\")",
                          "log(4, \"RdbmsInterface: Init() connection string is " + init + "\n\")",
                          "KxDataAccess#1.init(\"" + init + "\", 4, \"gateway\", \"policy\", \"secret\")",
                          "log(4, \"RdbmsInterface: Init() data access is ready\n\")"));
}

PROCESS_TEST_F(PooledInit, tracesButLogsNoError) {
  ASSERT_TRUE(initPooled());
  EXPECT_EQ(platform().log.texts(LogLevel::Trace), linesOfSuccess());
  EXPECT_EQ(platform().log.lines().size(), 3u);
}

PROCESS_TEST_F(PooledInit, startsWithAnEmptyPool) {
  ASSERT_TRUE(initPooled());
  EXPECT_EQ(platform().database.poolTuning(), (std::array<int, 3>{30, 10, 5}));
  EXPECT_TRUE(platform().database.poolWasEmpty());
}

PROCESS_TEST_F(PooledInit, passesCutTextsToThePool) {
  const std::string dsn = repeated(300, 'd');
  ASSERT_TRUE(RdbmsInterface::Init(1, nullptr, dsn.c_str(), "u", "p", "b"));
  EXPECT_THAT(platform().calls.beginningWith("KxDataAccess"),
              ElementsAre("KxDataAccess#1.init(\"ODBC;DRIVER=;DSN=" + dsn + ";UID=u;PWD=p;DATABASE=b\", 1, \"" +
                          dsn.substr(0, 255) + "\", \"u\", \"p\")"));
}

TEST_F(PooledInit, passesTheIntUnchanged) {
  for (const int number : {0, 1, 16, -1, 2147483647}) {
    SCOPED_TRACE(number);
    runInOwnProcess([&] {
      ASSERT_TRUE(RdbmsInterface::Init(number, nullptr, "d", "u", "p", "b"));
      EXPECT_THAT(platform().calls.beginningWith("KxDataAccess"),
                  ElementsAre("KxDataAccess#1.init(\"ODBC;DRIVER=;DSN=d;UID=u;PWD=p;DATABASE=b\", " +
                              std::to_string(number) + ", \"d\", \"u\", \"p\")"));
    });
  }
}

PROCESS_TEST_F(PooledInit, objectsLendFromThePoolAndGiveBack) {
  ASSERT_TRUE(initPooled());
  platform().calls.clear();
  RdbmsInterface::setDbConnectTimeOut(7);  // for connections that objects open themselves
  {
    const RdbmsInterface first;
    EXPECT_EQ(platform().database.lentConnections(), 1);
    const RdbmsInterface second;
    EXPECT_EQ(platform().database.lentConnections(), 2);
  }
  makeObject();
  EXPECT_EQ(platform().database.lentConnections(), 0);
  EXPECT_EQ(platform().calls.countOf("KxDataAccess.getConnect"), 3u);
  EXPECT_EQ(platform().calls.countOf("KxDataAccess.returnConnect"), 3u);
  EXPECT_EQ(platform().calls.countOf("KxDbConnect"), 2u);
  EXPECT_EQ(platform().calls.countOf("KxDbConnect.setDbConnectTimeOut"), 0u);
  EXPECT_EQ(platform().calls.countOf("~KxDbConnect"), 0u);
}

PROCESS_TEST_F(PooledInit, failsWhenThePoolCannotBeAllocated) {
  KxDataAccess* pool = nullptr;
  {
    const NothrowAllocationFailure failure;
    EXPECT_FALSE(initPooled(&pool));
    EXPECT_TRUE(failure.happened());
  }
  EXPECT_EQ(pool, nullptr);
  EXPECT_EQ(platform().log.lines(), (LogLines{trace(linesOfSuccess()[0]), trace(linesOfSuccess()[1]),
                                              error("RdbmsInterface::init: Allocation of KxDataAccess failed")}));
  EXPECT_THAT(platform().calls.beginningWith("KxDataAccess"), IsEmpty());

  // Without a pool, objects open their own connections, with the texts that were read.
  EXPECT_EQ(connectArguments(), arguments(kInitString, "gateway", "policy", "secret"));
  EXPECT_TRUE(initPooled(&pool));
  EXPECT_NE(pool, nullptr);
}

PROCESS_TEST_F(PooledInit, failsWhenThePoolThrows) {
  platform().faults.throwText(Point::PoolInit, "no server");
  KxDataAccess* pool = nullptr;
  EXPECT_FALSE(initPooled(&pool));
  EXPECT_EQ(pool, nullptr);
  EXPECT_EQ(platform().log.lines(),
            (LogLines{trace(linesOfSuccess()[0]), trace(linesOfSuccess()[1]),
                      error("RdbmsInterface::init: Exception \"no server\" thrown for KxDataAccess::init(" +
                            std::string(kInitString) + ", 4)")}));
}

PROCESS_TEST_F(PooledInit, failedPoolStillServesObjects) {
  platform().faults.throwText(Point::PoolInit, "no server");
  EXPECT_FALSE(initPooled());
  platform().calls.clear();
  makeObject();
  EXPECT_THAT(platform().calls.beginningWith("KxDataAccess"),
              ElementsAre("KxDataAccess#1.getConnect()", "KxDataAccess#1.returnConnect(a connection)"));
}

PROCESS_TEST_F(PooledInit, freshPoolFollowsAFailedOne) {
  platform().faults.throwText(Point::PoolInit, "no server");
  EXPECT_FALSE(initPooled());
  KxDataAccess* pool = nullptr;
  EXPECT_TRUE(initPooled(&pool));
  platform().calls.clear();
  makeObject();
  EXPECT_THAT(platform().calls.beginningWith("KxDataAccess"),
              ElementsAre("KxDataAccess#2.getConnect()", "KxDataAccess#2.returnConnect(a connection)"));
}

PROCESS_TEST_F(PooledInit, failedAllocationTakesTheFailedPoolAway) {
  platform().faults.throwText(Point::PoolInit, "no server");
  EXPECT_FALSE(initPooled());
  {
    const NothrowAllocationFailure failure;
    EXPECT_FALSE(initPooled());
  }
  EXPECT_EQ(connectArguments(), arguments(kInitString, "gateway", "policy", "secret"));
  EXPECT_EQ(platform().calls.countOf("KxDataAccess.getConnect"), 0u);
}

PROCESS_TEST_F(PooledInit, plainInitAfterAFailedPoolKeepsThePool) {
  platform().faults.throwText(Point::PoolInit, "no server");
  EXPECT_FALSE(initPooled());
  EXPECT_TRUE(initPlain());
  platform().calls.clear();
  makeObject();
  EXPECT_EQ(platform().calls.countOf("KxDataAccess.getConnect"), 1u);
}

PROCESS_TEST_F(PooledInit, failedPoolStaysWhenTheNextInitFindsNoConfiguration) {
  platform().faults.throwText(Point::PoolInit, "no server");
  EXPECT_FALSE(initPooled());
  platform().environment.unset("ZARO_HOME");
  EXPECT_FALSE(initPooled());
  platform().calls.clear();
  makeObject();
  EXPECT_EQ(platform().calls.countOf("KxDataAccess.getConnect"), 1u);
}

PROCESS_TEST_F(PooledInit, servesManyThreads) {
  ASSERT_TRUE(initPooled());
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([] {
      for (int unit = 0; unit < 100; ++unit) {
        RdbmsInterface db;
        if (unit % 2 == 0) {
          db.startTransaction();
        }
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(platform().calls.countOf("KxDataAccess.getConnect"), 400u);
  EXPECT_EQ(platform().calls.countOf("KxDataAccess.returnConnect"), 400u);
  EXPECT_EQ(platform().database.executions().size(), 400u);
}

// --- Exceptions that are not caught ---

struct UncaughtCase {
  const char* label;
  Point point;
  bool textToo;  // a `const char*` passes as well
};

const UncaughtCase kUncaughtCases[] = {
    {"opening the ini file", Point::IniOpen, true},
    {"reading the ini file", Point::IniRead, true},
    {"decrypting", Point::Decrypt, true},
    {"opening the pool", Point::PoolInit, false},
};

TEST_F(PooledInit, otherExceptionsPass) {
  for (const UncaughtCase& c : kUncaughtCases) {
    SCOPED_TRACE(c.label);
    runInOwnProcess([&] {
      platform().faults.throwOther(c.point);
      EXPECT_THROW(initPooled(), OtherFailure);
      EXPECT_THAT(platform().log.texts(LogLevel::Error), IsEmpty());
      EXPECT_TRUE(initPooled());  // the failure left the process uninitialised
      EXPECT_EQ(platform().log.texts(LogLevel::Trace).back(), linesOfSuccess().back());
    });
    if (c.textToo) {
      runInOwnProcess([&] {
        platform().faults.throwText(c.point, "broken");
        EXPECT_THROW(initPooled(), const char*);
        EXPECT_THAT(platform().log.texts(LogLevel::Error), IsEmpty());
      });
    }
  }
}

// --- A second call ---

class SecondInit : public InstallationTest {
 protected:
  void SetUp() override { platform().calls.clear(); }

  // What a second call does, whatever its arguments and however the environment has changed.
  static void expectNothingChanged(bool firstWasPooled) {
    const std::string sqlPath = RdbmsInterface::GetSqlPath();
    platform().environment.unset("ZARO_HOME");
    forgetKeys();
    platform().calls.clear();
    platform().log.clear();

    EXPECT_TRUE(RdbmsInterface::Init("x", "x", "x", "x"));
    EXPECT_THAT(platform().calls.all(), IsEmpty());

    KxDataAccess* pool = nullptr;
    EXPECT_TRUE(RdbmsInterface::Init(9, &pool, "x", "x", "x", "x"));
    EXPECT_EQ(pool, nullptr);
    EXPECT_THAT(platform().calls.all(), ElementsAre("log(4, \"RdbmsInterface: Init() ...\n\")"));

    EXPECT_EQ(RdbmsInterface::GetSqlPath(), sqlPath);
    platform().calls.clear();
    makeObject();
    EXPECT_EQ(platform().calls.countOf("KxDataAccess.getConnect"), firstWasPooled ? 1u : 0u);
    EXPECT_THAT(platform().calls.beginningWith("KxDbConnect#1.connect"),
                ElementsAre("KxDbConnect#1.connect" + arguments(kInitString, "gateway", "policy", "secret")));
  }
};

PROCESS_TEST_F(SecondInit, changesNothingAfterAPlainOne) {
  ASSERT_TRUE(initPlain());
  expectNothingChanged(false);
}

PROCESS_TEST_F(SecondInit, changesNothingAfterAPooledOne) {
  ASSERT_TRUE(initPooled());
  expectNothingChanged(true);
}

// --- ReInit ---

using RdbmsReInit = InstallationTest;

TEST_F(RdbmsReInit, isZeroWithoutAPool) {
  platform().database.setReinitResult(7);
  EXPECT_EQ(RdbmsInterface::ReInit(), 0);
  EXPECT_THAT(platform().calls.all(), IsEmpty());
}

PROCESS_TEST_F(RdbmsReInit, isZeroAfterAPlainInit) {
  platform().database.setReinitResult(7);
  ASSERT_TRUE(initPlain());
  EXPECT_EQ(RdbmsInterface::ReInit(), 0);
}

PROCESS_TEST_F(RdbmsReInit, givesThePoolsAnswer) {
  ASSERT_TRUE(initPooled());
  for (const int answer : {0, 1, -1, 1003}) {
    platform().calls.clear();
    platform().database.setReinitResult(answer);
    EXPECT_EQ(RdbmsInterface::ReInit(), answer);
    EXPECT_THAT(platform().calls.all(), ElementsAre("KxDataAccess#1.reinit()"));
  }
}

PROCESS_TEST_F(RdbmsReInit, letsExceptionsPass) {
  ASSERT_TRUE(initPooled());
  platform().faults.throwText(Point::PoolReinit, "no server");
  EXPECT_THROW(RdbmsInterface::ReInit(), const char*);
  platform().faults.throwOther(Point::PoolReinit);
  EXPECT_THROW(RdbmsInterface::ReInit(), OtherFailure);
}

// --- getParam ---

struct ParamCase {
  const char* label;
  bool opened;
  bool present;
  bool required;
  bool wantResult;
  bool wantRead;  // the file is asked for the value
  const char* wantValue;
  const char* wantLog;  // null: none
};

const ParamCase kParamCases[] = {
    {"required, there", true, true, true, true, true, "value", nullptr},
    {"required, missing", true, false, true, false, true, "before",
     "RdbmsInterface::init: ERROR: could read parameter \"K\"from section S in file /x.ini"},
    {"optional, there", true, true, false, true, true, "value", nullptr},
    {"optional, missing", true, false, false, true, true, "before", nullptr},
    {"required, not opened", false, false, true, false, false, "before",
     "RdbmsInterface::_getParam: ERROR: could not open config file/x.ini to get database source name"},
    {"required, not opened but there", false, true, true, false, false, "before",
     "RdbmsInterface::_getParam: ERROR: could not open config file/x.ini to get database source name"},
    {"optional, not opened", false, false, false, true, true, "before", nullptr},
    {"optional, not opened but there", false, true, false, true, true, "value", nullptr},
};

using RdbmsGetParam = PlatformTest;

TEST_F(RdbmsGetParam, readsOneValue) {
  for (const ParamCase& c : kParamCases) {
    SCOPED_TRACE(c.label);
    platform().reset();
    if (c.opened) {
      platform().ini.open("/x.ini");
    }
    if (c.present) {
      platform().ini.set("/x.ini", "S", "K", "value");
    }
    ZARO::ConfigFileOnDisk file("/x.ini");
    std::string value = "before";
    EXPECT_EQ(RdbmsInterface::getParam("S", "K", value, file, c.required), c.wantResult);
    EXPECT_EQ(value, c.wantValue);
    EXPECT_EQ(platform().calls.countOf("ConfigFileOnDisk.getValue"), c.wantRead ? 1u : 0u);
    EXPECT_EQ(platform().log.lines(), c.wantLog != nullptr ? LogLines{error(c.wantLog)} : LogLines{});
  }
}

TEST_F(RdbmsGetParam, optionalValueIsWhatTheReaderLeft) {
  platform().ini.open("/x.ini");
  platform().ini.leaveWhenMissing("left");
  ZARO::ConfigFileOnDisk file("/x.ini");
  std::string value = "before";
  EXPECT_TRUE(RdbmsInterface::getParam("S", "K", value, file, false));
  EXPECT_EQ(value, "left");
}

TEST_F(RdbmsGetParam, letsExceptionsPass) {
  platform().ini.open("/x.ini");
  ZARO::ConfigFileOnDisk file("/x.ini");
  std::string value;
  platform().faults.throwText(Point::IniRead, "broken");
  EXPECT_THROW(RdbmsInterface::getParam("S", "K", value, file, false), const char*);
  platform().faults.throwOther(Point::IniRead);
  EXPECT_THROW(RdbmsInterface::getParam("S", "K", value, file, true), OtherFailure);
}

// --- getDBType ---

using RdbmsDBType = PlatformTest;

TEST_F(RdbmsDBType, isTheVariableAsItStands) {
  EXPECT_EQ(RdbmsInterface::getDBType(), nullptr);
  for (const char* type : {"mssql", "MSSQL", "", "postgresql"}) {
    platform().environment.set("ZARO_DB_TYPE", type);
    EXPECT_STREQ(RdbmsInterface::getDBType(), type);
  }
}

}  // namespace
