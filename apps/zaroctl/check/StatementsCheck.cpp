#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include "ZaroRuntime/RuntimeError.h"
#include "ZaroRuntime/StatementFile.h"
#include "check/Checks.h"
#include "check/Restoring.h"
#include "installation/HarmlessStatement.h"
#include "installation/StatementCatalog.h"

using zaroruntime::FailureKind;
using zaroruntime::RuntimeError;
using zaroruntime::SqlSession;

namespace {

// Has the database look at a statement without doing its work.
void tryStatement(SqlSession& session, const CataloguedStatement& statement, const std::string& text) {
  session.run("EXPLAIN " + text);
  if (statement.kind != StatementKind::Query) {
    return;  // there is no telling its columns without running it
  }
  const auto found = session.columns("SELECT * FROM (" + text + ") AS result WHERE 1 = 0");
  for (const char* column : statement.columns) {
    const bool there = std::any_of(found.begin(), found.end(),
                                   [&](const std::string& name) { return strcasecmp(name.c_str(), column) == 0; });
    if (!there) {
      throw RuntimeError(std::string("the result has no column ") + column);
    }
  }
}

// A user who may only read: refusals of changes are meant so.
bool mayOnlyRead(SqlSession& session) {
  return session.dialect() == zaroruntime::Dialect::PostgreSQL &&
         session.value("SELECT CASE WHEN has_table_privilege('named_object', 'INSERT') THEN 1 ELSE 0 END") == "0";
}

std::string statementFinding(const std::string& path, const CataloguedStatement& statement, SqlSession* session) {
  const std::string conversions = zaroruntime::statementConversions(path);
  if (conversions != statement.conversions) {
    throw RuntimeError(path + ": takes parameters \"" + conversions + "\" instead of \"" + statement.conversions + "\"");
  }
  if (statement.kind == StatementKind::Transaction || session == nullptr) {
    return path + ": accepted";
  }
  try {
    tryStatement(*session, statement, harmlessStatement(path));
  } catch (const RuntimeError& failure) {
    if (statement.kind == StatementKind::Change && failure.kind() == FailureKind::Refused && mayOnlyRead(*session)) {
      return path + ": accepted; this user of the database may only read";
    }
    throw RuntimeError(path + ": " + failure.what(), failure.kind());
  }
  return path + ": understood by the database";
}

std::string restored(const CheckedDatabase& database, const CataloguedStatement& statement, const std::string& path) {
  return restoringCommand(
      std::string("sql/") + zaroruntime::dialectName(database.source.dialect) + "/" + statement.file, path);
}

}  // namespace

void checkStatements(const zaroruntime::Installation& installation, const CheckedDatabase* database, Findings& findings) {
  const bool canTry = database != nullptr && database->source.dialect != zaroruntime::Dialect::Other;
  SqlSession* const session = canTry ? database->session.get() : nullptr;
  const std::string directory = installation.sqlDirectory();
  if (::access(directory.c_str(), X_OK) != 0) {
    findings.wrong("statements", directory + ": " + std::strerror(errno));
    return;
  }
  for (const CataloguedStatement& statement : statementCatalog()) {
    const std::string path = directory + "/" + statement.file;
    findings.check("statement", [&] {
      try {
        return statementFinding(path, statement, session);
      } catch (const RuntimeError& failure) {
        throw RuntimeError(failure.what() + (database != nullptr ? restored(*database, statement, path) : ""),
                           failure.kind());
      }
    });
  }
}
