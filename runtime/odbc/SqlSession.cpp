#include "ZaroRuntime/SqlSession.h"

#include "ZaroRuntime/RuntimeError.h"
#include "common/FileText.h"
#include "odbc/ConnectionString.h"
#include "odbc/OdbcConnection.h"
#include "odbc/OdbcError.h"
#include "sql/SqlText.h"

namespace zaroruntime {

namespace {

constexpr std::size_t kLargestScript = 64 * 1024 * 1024;

}  // namespace

struct SqlSession::Impl {
  OdbcConnection odbc;
  const char* begin;  // how this dialect begins a transaction that will write
};

SqlSession::SqlSession(const DataSource& source, const DatabaseSettings& settings, const Installation& installation,
                       int connectTimeOut)
    : m_impl(std::make_unique<Impl>()) {
  m_impl->begin = source.dialect == Dialect::SQLite ? "BEGIN IMMEDIATE" : "BEGIN";
  const std::string target = connectionString(source, settings, installation);
  try {
    m_impl->odbc.connect(target, source.dialect, connectTimeOut);
  } catch (const OdbcError& failure) {
    throw RuntimeError("data source " + source.name + " (driver " + source.driver + "): " + failure.what());
  }
}

SqlSession::~SqlSession() = default;

void SqlSession::run(const std::string& statement) {
  m_impl->odbc.execute(statement);
  m_impl->odbc.closeResult();
}

std::optional<std::string> SqlSession::value(const std::string& query) {
  m_impl->odbc.execute(query);
  std::optional<std::string> first;
  if (m_impl->odbc.fetch()) {
    first = m_impl->odbc.value(0);
  }
  m_impl->odbc.closeResult();
  return first;
}

void SqlSession::runScript(const std::string& path) {
  std::vector<ScriptStatement> statements;
  try {
    statements = splitScript(readFileText(path, kLargestScript));
  } catch (const RuntimeError& failure) {
    throw RuntimeError(path + ": " + failure.what());
  }
  run(m_impl->begin);
  for (const ScriptStatement& statement : statements) {
    try {
      run(statement.text);
    } catch (const OdbcError& failure) {
      m_impl->odbc.disconnect();  // rolls back
      throw RuntimeError(path + ": line " + std::to_string(statement.line) + ": " + failure.what());
    }
  }
  run("COMMIT");
}

}  // namespace zaroruntime
