#include <strings.h>

#include <algorithm>
#include <string>

#include "ZaroRuntime/RuntimeError.h"
#include "ZaroRuntime/StatementFile.h"
#include "check/Checks.h"
#include "installation/HarmlessStatement.h"
#include "installation/StatementCatalog.h"

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
    throw RuntimeError(path + ": " + failure.what(), failure.kind());
  }
  return path + ": understood by the database";
}

}  // namespace

void checkStatements(const zaroruntime::Installation& installation, const CheckedDatabase* database, Findings& findings) {
  const bool canTry = database != nullptr && database->source.dialect != zaroruntime::Dialect::Other;
  SqlSession* const session = canTry ? database->session.get() : nullptr;
  for (const CataloguedStatement& statement : statementCatalog()) {
    const std::string path = installation.sqlDirectory() + "/" + statement.file;
    findings.check("statement", [&] { return statementFinding(path, statement, session); });
  }
}
