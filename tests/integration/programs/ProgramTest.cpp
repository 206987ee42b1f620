// How tests run the program in an installation.
#include "programs/ProgramTest.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <utility>

namespace zarotest {

namespace fs = std::filesystem;
using zaroruntime::DataSource;
using zaroruntime::Installation;
using zaroruntime::SqlSession;

namespace {

constexpr int kConnectTimeOut = 30;  // seconds
constexpr const char* kDatabaseFile = "data/zaro.db";

std::string freshDatabaseName() {
  static std::atomic<int> count{0};
  return "zaro_program_" + std::to_string(getpid()) + "_" + std::to_string(++count);
}

}  // namespace

ServerDatabase::ServerDatabase() : m_server(*postgresqlServer()), m_name(freshDatabaseName()) {
  _session(m_server.database)->run("CREATE DATABASE " + m_name);
}

ServerDatabase::~ServerDatabase() {
  const auto session = _session(m_server.database);
  session->run("DROP DATABASE IF EXISTS " + m_name + " WITH (FORCE)");
  if (!m_saved.empty()) {
    session->run("DROP DATABASE " + m_saved);
  }
}

void ServerDatabase::save() {
  m_saved = m_name + "_saved";
  _session(m_server.database)->run("CREATE DATABASE " + m_saved + " TEMPLATE " + m_name);
}

void ServerDatabase::restore() const {
  const auto session = _session(m_server.database);
  session->run("DROP DATABASE " + m_name + " WITH (FORCE)");
  session->run("CREATE DATABASE " + m_name + " TEMPLATE " + m_saved);
}

std::unique_ptr<SqlSession> ServerDatabase::_session(const std::string& database) const {
  const DataSource source{
      "test", "psqlodbcw.so", Dialect::PostgreSQL, {{"Servername", m_server.host}, {"Port", m_server.port}}};
  return std::make_unique<SqlSession>(source,
                                      zaroruntime::DatabaseSettings{"test", m_server.user, m_server.password, database},
                                      Installation("/"), kConnectTimeOut);
}

void ProgramTest::SetUp() {
  if (GetParam() != Dialect::PostgreSQL) {
    return;
  }
  if (!postgresqlServer()) {
    GTEST_SKIP() << "no PostgreSQL server: run the tests through scripts/with-postgres";
  }
  m_database = std::make_unique<ServerDatabase>();
}

void SampleInstallation::SetUp() {
  ProgramTest::SetUp();
  if (!IsSkipped()) {
    mustInit({"--sample"});
  }
}

std::vector<std::string> ProgramTest::initArguments(const std::string& directory,
                                                    const std::vector<std::string>& more) const {
  std::vector<std::string> arguments = {"init", directory};
  if (m_database) {
    const PostgresqlServer& server = m_database->server();
    const std::pair<const char*, std::string> options[] = {{"--db", "postgresql"},
                                                           {"--host", server.host},
                                                           {"--port", server.port},
                                                           {"--user", server.user},
                                                           {"--database", m_database->name()}};
    for (const auto& [option, value] : options) {
      if (std::find(more.begin(), more.end(), option) == more.end()) {
        arguments.emplace_back(option);
        arguments.push_back(value);
      }
    }
  }
  arguments.insert(arguments.end(), more.begin(), more.end());
  return arguments;
}

std::string ProgramTest::initInput() const {
  return m_database ? m_database->server().password + "\n" : std::string();
}

ProgramResult ProgramTest::init(const std::string& directory, const std::vector<std::string>& more) const {
  ProgramRun run;
  run.input = initInput();
  return zaroctl(initArguments(directory, more), run);
}

void ProgramTest::mustInit(const std::vector<std::string>& more) const {
  const ProgramResult made = init(home(), more);
  ASSERT_EQ(made.status, 0) << made.err;
}

ProgramResult ProgramTest::run(const std::vector<std::string>& arguments, const std::string& input) const {
  ProgramRun run;
  run.input = input;
  run.environment["ZARO_HOME"] = home();
  return zaroctl(arguments, run);
}

std::string ProgramTest::expectRefused(const std::vector<std::string>& arguments, int status, const std::string& told,
                                       const std::string& input) const {
  const ProgramResult result = run(arguments, input);
  EXPECT_EQ(result.status, status) << result.out;
  EXPECT_THAT(result.err, testing::HasSubstr(told));
  EXPECT_EQ(linesOf(result.err).size(), 1u) << result.err;
  return result.err;
}

std::unique_ptr<SqlSession> ProgramTest::session() const {
  if (m_database) {
    return m_database->session();
  }
  const DataSource source{"test", "libsqlite3odbc.so", Dialect::SQLite, {}};
  return std::make_unique<SqlSession>(source, zaroruntime::DatabaseSettings{"test", "", "", kDatabaseFile},
                                      Installation(home()), kConnectTimeOut);
}

void ProgramTest::saveDatabase() {
  if (m_database) {
    m_database->save();
  } else {
    m_savedFile = readFile(homeFile(kDatabaseFile));
  }
}

void ProgramTest::restoreDatabase() const {
  if (m_database) {
    m_database->restore();
    return;
  }
  for (const char* beside : {"-wal", "-shm"}) {
    fs::remove(homeFile(kDatabaseFile) + beside);
  }
  writeFile(kDatabaseFile, m_savedFile);
}

std::map<std::string, std::string> ProgramTest::rowCounts() const {
  const auto database = session();
  std::istringstream tables(
      database
          ->value(m_database ? "SELECT string_agg(tablename, ' ') FROM pg_tables WHERE schemaname = current_schema()"
                             : "SELECT group_concat(name, ' ') FROM sqlite_master WHERE type = 'table'")
          .value());
  std::map<std::string, std::string> counts;
  for (std::string table; tables >> table;) {
    counts[table] = database->value("SELECT count(*) FROM " + table).value();
  }
  return counts;
}

void ProgramTest::replaceLine(const std::string& name, const std::string& begin, const std::string& line) const {
  std::string text;
  bool found = false;
  for (const std::string& old : linesOf(readFile(homeFile(name)))) {
    if (found || old.compare(0, begin.size(), begin) != 0) {
      text += old + "\n";
      continue;
    }
    found = true;
    text += line.empty() ? line : line + "\n";
  }
  ASSERT_TRUE(found) << name << " has no line " << begin;
  writeFile(name, text);
}

void ProgramTest::writeFile(const std::string& name, const std::string& text) const {
  std::ofstream(homeFile(name), std::ios::binary | std::ios::trunc) << text;
}

std::map<std::string, std::string> everythingIn(const std::string& directory) {
  std::map<std::string, std::string> found;
  for (const auto& entry : fs::recursive_directory_iterator(directory)) {
    const std::string path = entry.path().string();
    struct stat status = {};
    lstat(path.c_str(), &status);
    std::ostringstream state;
    state << std::oct << status.st_mode << std::dec << ' ' << status.st_uid << ' ' << status.st_gid;
    if (entry.is_regular_file()) {
      const std::string text = readFile(path);
      state << ' ' << text.size() << " bytes, hash " << std::hash<std::string>()(text);
    }
    found[path] = state.str();
  }
  return found;
}

void copySkeleton(const std::string& directory) {
  fs::create_directories(directory);
  fs::copy(fs::path(ZAROCTL_PATH).parent_path().parent_path() / "share/zaropolicy/home", directory,
           fs::copy_options::recursive);
}

}  // namespace zarotest
