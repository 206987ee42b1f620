// Tests of the program on every database, each with an installation that `zaroctl init` made and a database of its own.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ZaroRuntime/SqlSession.h"
#include "programs/Program.h"
#include "support/TemporaryDirectory.h"
#include "support/TestInstallation.h"

namespace zarotest {

// A database on the test server, dropped when this goes.
class ServerDatabase {
 public:
  ServerDatabase();
  ~ServerDatabase();
  ServerDatabase(const ServerDatabase&) = delete;
  ServerDatabase& operator=(const ServerDatabase&) = delete;

  const std::string& name() const { return m_name; }
  const PostgresqlServer& server() const { return m_server; }
  std::unique_ptr<zaroruntime::SqlSession> session() const { return _session(m_name); }

  // Keeps a copy; and makes the database that copy again, closing every connection to it.
  void save();
  void restore() const;

 private:
  std::unique_ptr<zaroruntime::SqlSession> _session(const std::string& database) const;

  PostgresqlServer m_server;
  std::string m_name;
  std::string m_saved;  // name of the copy; empty without one
};

class ProgramTest : public testing::TestWithParam<Dialect> {
 protected:
  void SetUp() override;

  // Arguments and standard input of an init for this test's database; `more` goes before its options.
  std::vector<std::string> initArguments(const std::string& directory, const std::vector<std::string>& more = {}) const;
  std::string initInput() const;
  ProgramResult init(const std::string& directory, const std::vector<std::string>& more = {}) const;
  // Makes the installation at `home()`.
  void mustInit(const std::vector<std::string>& more = {}) const;

  std::string home() const { return m_directory.path("gateway"); }
  std::string homeFile(const std::string& name) const { return home() + "/" + name; }
  const TemporaryDirectory& directory() const { return m_directory; }

  // Runs a command on the installation.
  ProgramResult run(const std::vector<std::string>& arguments, const std::string& input = {}) const;
  // Runs one that ends with `status` and says why in one line, which holds `told` and is the answer.
  std::string expectRefused(const std::vector<std::string>& arguments, int status, const std::string& told,
                            const std::string& input = {}) const;
  // A connection to the installation's database.
  std::unique_ptr<zaroruntime::SqlSession> session() const;
  std::string value(const std::string& query) const { return session()->value(query).value_or("NULL"); }
  // Keeps a copy of the database; and makes the database that copy again. No program runs meanwhile.
  void saveDatabase();
  void restoreDatabase() const;
  // How many rows each table of the database has.
  std::map<std::string, std::string> rowCounts() const;

  // Replaces the first line that begins with `begin` in a file of the installation; empty removes it.
  void replaceLine(const std::string& name, const std::string& begin, const std::string& line) const;
  void writeFile(const std::string& name, const std::string& text) const;

 private:
  TemporaryDirectory m_directory;
  std::unique_ptr<ServerDatabase> m_database;
  std::string m_savedFile;  // content of the embedded database
};

// Tests on the sample organisation.
class SampleInstallation : public ProgramTest {
 protected:
  void SetUp() override;
};

// Names, permissions, owners and contents of everything below a directory.
std::map<std::string, std::string> everythingIn(const std::string& directory);

// A copy of the skeleton that a test may change; its files stand where those of the installed one do.
void copySkeleton(const std::string& directory);

}  // namespace zarotest
