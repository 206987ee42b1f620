// What a unit of work costs beside its bare statement, and beside the database's own library.
//
//   unit of work     a RdbmsInterface on a pool, which resets the session, and the look-up of an administrator in it
//   bare statement   the look-up's statement through ODBC, on one connection, its column read
//   own library      the same through libsqlite3 or libpq
//
// The three take turns in short rounds, so that whatever else the machine does meets all of them. Other work only ever adds
// time, so the round a tenth of the way from the fastest to the slowest counts. PostgreSQL takes part when
// scripts/with-postgres says where it is.
#include <libpq-fe.h>
#include <sql.h>
#include <sqlext.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "RdbmsInterface.h"
#include "miscUtils.h"
#include "odbc/ConnectionString.h"
#include "odbc/OdbcHandle.h"
#include "support/TestInstallation.h"

namespace {

using zarotest::Dialect;
using Work = std::function<void()>;

constexpr int kRounds = 1000;
constexpr int kWorkPerRound = 10;
// A statement file that was written less than 2 seconds ago is read at each use, as no file of a process is that has
// lived a while.
constexpr std::chrono::seconds kUntilSettled{3};
constexpr char kQuery[] = "SELECT id AS \"AdminID\" FROM administrator WHERE name='alice'";

void require(bool condition, const char* what) {
  if (!condition) {
    std::fprintf(stderr, "%s\n", what);
    std::exit(1);
  }
}

SQLCHAR* input(const std::string& text) {
  return reinterpret_cast<SQLCHAR*>(const_cast<char*>(text.c_str()));
}

class BareStatement {
 public:
  explicit BareStatement(const zarotest::TestInstallation& home)
      : m_environment(makeEnvironment()), m_connection(SQL_HANDLE_DBC, m_environment.get()) {
    const auto here = home.installation();
    const auto source = zaroruntime::readDataSource(here, home.settings().dataSource);
    const std::string target = zaroruntime::connectionString(source, home.settings(), here);
    require(SQL_SUCCEEDED(SQLDriverConnect(m_connection.get(), nullptr, input(target), SQL_NTS, nullptr, 0, nullptr,
                                           SQL_DRIVER_NOPROMPT)),
            "ODBC does not connect");
    m_statement = zaroruntime::OdbcHandle(SQL_HANDLE_STMT, m_connection.get());
  }
  ~BareStatement() {
    m_statement.reset();
    SQLDisconnect(m_connection.get());
  }
  BareStatement(const BareStatement&) = delete;
  BareStatement& operator=(const BareStatement&) = delete;

  void run() {
    char value[32] = "";
    SQLLEN length = 0;
    require(SQL_SUCCEEDED(SQLExecDirect(m_statement.get(), input(kQuery), SQL_NTS)) &&
                SQL_SUCCEEDED(SQLFetch(m_statement.get())) &&
                SQL_SUCCEEDED(SQLGetData(m_statement.get(), 1, SQL_C_CHAR, value, sizeof value, &length)) &&
                value[0] != '\0',
            "the bare statement fails");
    SQLFreeStmt(m_statement.get(), SQL_CLOSE);
  }

 private:
  static zaroruntime::OdbcHandle makeEnvironment() {
    zaroruntime::OdbcHandle environment(SQL_HANDLE_ENV, SQL_NULL_HANDLE);
    SQLSetEnvAttr(environment.get(), SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0);
    return environment;
  }

  zaroruntime::OdbcHandle m_environment;
  zaroruntime::OdbcHandle m_connection;
  zaroruntime::OdbcHandle m_statement;
};

Work ownSqlite(const zarotest::TestInstallation& home) {
  sqlite3* database = nullptr;
  require(sqlite3_open(home.directory().path(home.settings().database).c_str(), &database) == SQLITE_OK,
          "libsqlite3 does not open the database");
  const std::shared_ptr<sqlite3> kept(database, sqlite3_close);
  return [kept] {
    sqlite3_stmt* statement = nullptr;
    require(sqlite3_prepare_v2(kept.get(), kQuery, -1, &statement, nullptr) == SQLITE_OK &&
                sqlite3_step(statement) == SQLITE_ROW && sqlite3_column_text(statement, 0) != nullptr,
            "the statement of libsqlite3 fails");
    sqlite3_finalize(statement);
  };
}

Work ownPostgresql(const zarotest::TestInstallation& home) {
  const auto server = *zarotest::postgresqlServer();
  const std::shared_ptr<PGconn> kept(
      PQsetdbLogin(server.host.c_str(), server.port.c_str(), nullptr, nullptr, home.settings().database.c_str(),
                   home.settings().user.c_str(), home.settings().password.c_str()),
      PQfinish);
  require(PQstatus(kept.get()) == CONNECTION_OK, "libpq does not connect");
  return [kept] {
    const std::unique_ptr<PGresult, void (*)(PGresult*)> result(PQexec(kept.get(), kQuery), PQclear);
    require(PQntuples(result.get()) == 1 && PQgetvalue(result.get(), 0, 0)[0] != '\0', "the statement of libpq fails");
  };
}

void unitOfWork() {
  ZARO::RdbmsInterface db;
  unsigned int id = 0;
  require(miscUtils::getAdminId(db, "alice", id) == 0 && id != 0, "the unit of work fails");
}

double microseconds(const Work& work) {
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < kWorkPerRound; ++i) {
    work();
  }
  return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count() / kWorkPerRound;
}

void measure(const char* database, const zarotest::TestInstallation& home) {
  require(ZARO::RdbmsInterface::Init(1, nullptr, nullptr, nullptr, nullptr, nullptr), "Init failed");
  std::this_thread::sleep_for(kUntilSettled);
  BareStatement bare(home);
  const std::vector<Work> works = {unitOfWork, [&] { bare.run(); },
                                   home.dialect() == Dialect::SQLite ? ownSqlite(home) : ownPostgresql(home)};
  std::vector<std::vector<double>> times(works.size());
  for (int round = 0; round < kRounds; ++round) {
    for (std::size_t i = 0; i < works.size(); ++i) {
      times[i].push_back(microseconds(works[i]));
    }
  }
  std::vector<double> low;
  for (auto& rounds : times) {
    std::nth_element(rounds.begin(), rounds.begin() + kRounds / 10, rounds.end());
    low.push_back(rounds[kRounds / 10]);
  }
  std::printf("| %s | %.1f | %.1f | %.1f | %.2f | %.2f |\n", database, low[0], low[1], low[2], low[0] / low[1],
              low[0] / low[2]);
}

// In a process of its own, because the library and the log are configured once per process.
void measureInOwnProcess(const char* database, Dialect dialect) {
  const zarotest::TestInstallation home(dialect);
  home.sql("INSERT INTO administrator (name, is_root) VALUES ('alice', 0)");
  std::fflush(nullptr);
  const pid_t child = ::fork();
  if (child == 0) {
    measure(database, home);
    std::fflush(nullptr);
    ::_exit(0);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  require(status == 0, "a measurement failed");
}

}  // namespace

int main() {
  std::puts("| database | unit of work, us | bare statement, us | own library, us | unit : bare | unit : own |");
  std::puts("|---|---|---|---|---|---|");
  measureInOwnProcess("SQLite", Dialect::SQLite);
  if (zarotest::postgresqlServer()) {
    measureInOwnProcess("PostgreSQL", Dialect::PostgreSQL);
  }
}
