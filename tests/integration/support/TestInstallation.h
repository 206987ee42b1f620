// Installations for tests, each with a database of its own.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>

#include "ZaroRuntime/DataSource.h"
#include "ZaroRuntime/Installation.h"
#include "ZaroRuntime/SqlSession.h"
#include "support/TemporaryDirectory.h"

namespace zarotest {

using zaroruntime::Dialect;

// Where the PostgreSQL server for tests is; nothing when the environment names none.
struct PostgresqlServer {
  std::string host, port, user, password, database;
  std::string control;  // command line that takes an action of pg_ctl; empty if the server is not ours
  std::string replica;  // the same for a replica: make, promote, remove
};
std::optional<PostgresqlServer> postgresqlServer();

// An installation directory with the schema in a fresh database. ZARO_HOME names it while the object lives.
class TestInstallation {
 public:
  //   schema   a file with another schema than that of the skeleton
  explicit TestInstallation(Dialect dialect, const std::string& schema = "");
  ~TestInstallation();
  TestInstallation(const TestInstallation&) = delete;
  TestInstallation& operator=(const TestInstallation&) = delete;

  Dialect dialect() const { return m_dialect; }
  const TemporaryDirectory& directory() const { return m_directory; }
  zaroruntime::Installation installation() const { return zaroruntime::Installation(m_directory.path()); }
  const zaroruntime::DatabaseSettings& settings() const { return m_settings; }

  // The text that the library would hand to `KxDbConnect::connect`.
  std::string initString() const;
  // A connection beside the one under test.
  std::unique_ptr<zaroruntime::SqlSession> session() const;
  void sql(const std::string& statement) const { session()->run(statement); }
  std::string value(const std::string& query) const { return session()->value(query).value_or("NULL"); }

 private:
  void _copySkeleton();
  void _makeDatabase();

  Dialect m_dialect;
  TemporaryDirectory m_directory;
  zaroruntime::DatabaseSettings m_settings;
  zaroruntime::DataSource m_source;  // as it was made: tests may break the file
  std::string m_ownDatabase;         // to be dropped from the server
};

// Runs its tests on each database; skips PostgreSQL, with a word, where there is none.
class OnEveryDatabase : public testing::TestWithParam<Dialect> {
 protected:
  void SetUp() override;
  const TestInstallation& home() const { return *m_home; }

 private:
  std::unique_ptr<TestInstallation> m_home;
};

std::string dialectTestName(const testing::TestParamInfo<Dialect>& info);

#define ZARO_ON_EVERY_DATABASE(Fixture)                                                                          \
  INSTANTIATE_TEST_SUITE_P(, Fixture, testing::Values(zarotest::Dialect::SQLite, zarotest::Dialect::PostgreSQL), \
                           zarotest::dialectTestName)

}  // namespace zarotest
