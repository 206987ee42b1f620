// Bringing a database to a later version of the schema.
//
// Each version after the first has a numbered script for each dialect: upgrade/NNNN-NAME.sql beside its schema.sql. It
// makes version NNNN of the version before it, and inserts that row into schema_version.
//
// 1. A script runs in one transaction, together with its row.
// 2. The transaction holds the table of versions against all others. So it begins when no change is in progress that has
//    looked at the version; a change that looks later, and another upgrade, wait and see the new one. (On SQLite the
//    transaction holds the whole database against writers; readers go on.)
// 3. Scripts for SQLite run with foreign keys switched off, as the rebuilding of a table needs (the script itself says
//    "PRAGMA legacy_alter_table = ON", since triggers name the table that is dropped); rows that refer to nothing
//    afterwards roll the script back.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "ZaroRuntime/SqlSession.h"

struct UpgradeScript {
  int version = 0;  // that the script brings a database to
  std::string path;

  std::string name() const;  // without the directory
};

// Everything throws RuntimeError.
class SchemaUpgrade {
 public:
  using Scripts = std::vector<UpgradeScript>;

  //   session     a session of SQLite or PostgreSQL that nothing else uses
  //   directory   the scripts
  //   target      the version to reach
  SchemaUpgrade(zaroruntime::SqlSession& session, const std::string& directory, int target);

  // The version of the database. Throws also when there is no schema.
  int version();
  // The scripts that are to run, in order; none when the database has the version. Throws also when the database is
  // newer, or a script is missing.
  Scripts pending();
  // Runs them, and answers those that ran here. When one fails, those before it stay.
  Scripts run();
  // Runs them in one transaction, and takes it back. The session is of no use afterwards.
  Scripts tryOut();

 private:
  void _transaction(const std::function<void()>& work);
  void _runScript(const UpgradeScript& script);
  std::size_t _danglingReferences();

  zaroruntime::SqlSession& m_session;
  std::string m_directory;
  int m_target;
};
