#include "support/TestInstallation.h"

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>

#include "ZaroRuntime/IniFile.h"
#include "support/HostSettings.h"

namespace zarotest {

namespace fs = std::filesystem;
using zaroruntime::DatabaseSettings;
using zaroruntime::IniFile;
using zaroruntime::Installation;
using zaroruntime::SqlSession;

namespace {

std::string environment(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

std::string freshDatabaseName() {
  static std::atomic<int> count{0};
  return "zaro_test_" + std::to_string(getpid()) + "_" + std::to_string(++count);
}

}  // namespace

std::optional<PostgresqlServer> postgresqlServer() {
  PostgresqlServer server{environment("ZARO_TEST_PG_HOST"),     environment("ZARO_TEST_PG_PORT"),
                          environment("ZARO_TEST_PG_USER"),     environment("ZARO_TEST_PG_PASSWORD"),
                          environment("ZARO_TEST_PG_DATABASE"), environment("ZARO_TEST_PG_CTL"),
                          environment("ZARO_TEST_PG_REPLICA")};
  return server.host.empty() ? std::nullopt : std::optional<PostgresqlServer>(server);
}

TestInstallation::TestInstallation(Dialect dialect, const std::string& schema) : m_dialect(dialect) {
  _copySkeleton();
  setenv("ZARO_HOME", m_directory.path().c_str(), 1);
  _makeDatabase();
  session()->runScript(schema.empty() ? m_directory.path("sql/schema.sql") : schema);
}

TestInstallation::~TestInstallation() {
  unsetenv("ZARO_HOME");
  if (!m_ownDatabase.empty()) {
    DatabaseSettings server = m_settings;
    server.database = postgresqlServer()->database;
    SqlSession(m_source, server, installation(), 30).run("DROP DATABASE " + m_ownDatabase + " WITH (FORCE)");
  }
}

std::string TestInstallation::initString() const {
  return "ODBC;DRIVER=;DSN=" + m_settings.dataSource + ";UID=" + m_settings.user + ";PWD=" + m_settings.password +
         ";DATABASE=" + m_settings.database;
}

std::unique_ptr<SqlSession> TestInstallation::session() const {
  return std::make_unique<SqlSession>(m_source, m_settings, installation(), 30);
}

void TestInstallation::_copySkeleton() {
  const fs::path skeleton = ZARO_SKELETON_DIR;
  fs::copy(skeleton / "config", m_directory.path("config"), fs::copy_options::recursive);
  fs::copy(skeleton / "sql" / zaroruntime::dialectName(m_dialect), m_directory.path("sql"), fs::copy_options::recursive);
  fs::create_directory(m_directory.path("data"));
  m_directory.write("config/zaro.ini", readFile(m_directory.path("config/zaro.ini")) + kHostSettings);
}

void TestInstallation::_makeDatabase() {
  const Installation here = installation();
  IniFile database(here.databaseIni());
  m_settings = {"zaro", "", "", "data/zaro.db"};
  if (m_dialect == Dialect::SQLite) {
    m_directory.write("data/zaro.db", "");
    m_source = zaroruntime::readDataSource(here, "zaro");
  } else {
    const PostgresqlServer server = *postgresqlServer();
    IniFile odbc(here.odbcIni());
    odbc.set("zaro", "Driver", "psqlodbcw.so");
    odbc.set("zaro", "Servername", server.host);
    odbc.set("zaro", "Port", server.port);
    odbc.write(here.odbcIni(), 0644);
    m_source = zaroruntime::readDataSource(here, "zaro");
    m_settings = {"zaro", server.user, server.password, server.database};
    m_ownDatabase = freshDatabaseName();
    sql("CREATE DATABASE " + m_ownDatabase);
    m_settings.database = m_ownDatabase;
  }
  database.set("Database_Settings", "UserId", m_settings.user);
  database.set("Database_Settings", "Password", m_settings.password);
  database.set("Database_Settings", "Database", m_settings.database);
  database.write(here.databaseIni(), 0600);
}

void OnEveryDatabase::SetUp() {
  if (GetParam() == Dialect::PostgreSQL && !postgresqlServer()) {
    GTEST_SKIP() << "no PostgreSQL server: run the tests through scripts/with-postgres";
  }
  m_home = std::make_unique<TestInstallation>(GetParam());
}

std::string dialectTestName(const testing::TestParamInfo<Dialect>& info) {
  return zaroruntime::dialectName(info.param);
}

}  // namespace zarotest
