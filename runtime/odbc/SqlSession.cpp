#include "ZaroRuntime/SqlSession.h"

#include <utility>

#include "ZaroRuntime/RuntimeError.h"
#include "common/FileText.h"
#include "odbc/ConnectionString.h"
#include "odbc/OdbcConnection.h"
#include "odbc/OdbcError.h"
#include "odbc/TransactionState.h"
#include "sql/SqlText.h"

namespace zaroruntime {

namespace {

constexpr std::size_t kLargestScript = 64 * 1024 * 1024;

struct Script {
  std::string path;
  std::vector<ScriptStatement> statements;
};

Script readScript(const std::string& path) {
  try {
    return {path, splitScript(readFileText(path, kLargestScript))};
  } catch (const RuntimeError& failure) {
    throw RuntimeError(path + ": " + failure.what(), failure.kind());
  }
}

}  // namespace

struct SqlSession::Impl {
  OdbcConnection odbc;
  Dialect dialect;
  const char* begin;  // how this dialect begins a transaction that will write

  void run(const std::string& statement) {
    odbc.execute(statement);
    odbc.closeResult();
  }

  // Runs `operation` as one transaction.
  template <typename Operation>
  void together(Operation operation) {
    run(begin);
    try {
      operation();
    } catch (...) {
      odbc.disconnect();  // rolls back
      throw;
    }
    try {
      odbc.control("COMMIT");
    } catch (const std::exception& failure) {
      odbc.disconnect();
      if (leavesCommitOpen(failure)) {
        throwInDoubt(failure);
      }
      throw;
    }
  }

  void runAll(const Script& script) {
    for (const ScriptStatement& statement : script.statements) {
      try {
        run(statement.text);
      } catch (const OdbcError& failure) {
        throw RuntimeError(script.path + ": line " + std::to_string(statement.line) + ": " + failure.what(),
                           failure.kind());
      }
    }
  }
};

SqlSession::SqlSession(const DataSource& source, const DatabaseSettings& settings, const Installation& installation,
                       int connectTimeOut)
    : m_impl(std::make_unique<Impl>()) {
  m_impl->dialect = source.dialect;
  m_impl->begin = source.dialect == Dialect::SQLite ? "BEGIN IMMEDIATE" : "BEGIN";
  const std::string target = connectionString(source, settings, installation);
  try {
    m_impl->odbc.connect(target, source.dialect, connectTimeOut);
  } catch (const OdbcError& failure) {
    throw RuntimeError("data source " + source.name + " (driver " + source.driver + "): " + failure.what(),
                       failure.kind());
  }
}

SqlSession::~SqlSession() = default;

Dialect SqlSession::dialect() const {
  return m_impl->dialect;
}

void SqlSession::setStatementTimeOut(int seconds) {
  m_impl->odbc.setStatementTimeOut(seconds);
}

void SqlSession::run(const std::string& statement) {
  m_impl->run(statement);
}

void SqlSession::runTogether(const std::vector<std::string>& statements, const std::function<void()>& beforeCommit) {
  m_impl->together([&] {
    for (const std::string& statement : statements) {
      run(statement);
    }
    if (beforeCommit) {
      beforeCommit();
    }
  });
}

void SqlSession::runAsTransaction(const std::function<void()>& work) {
  m_impl->together(work);
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

std::vector<SqlSession::Row> SqlSession::rows(const std::string& query) {
  m_impl->odbc.execute(query);
  const std::size_t width = m_impl->odbc.columns().size();
  std::vector<Row> rows;
  while (m_impl->odbc.fetch()) {
    Row row;
    for (std::size_t column = 0; column < width; ++column) {
      row.push_back(m_impl->odbc.value(column));
    }
    rows.push_back(std::move(row));
  }
  m_impl->odbc.closeResult();
  return rows;
}

std::vector<std::string> SqlSession::columns(const std::string& query) {
  m_impl->odbc.execute(query);
  std::vector<std::string> names = m_impl->odbc.columns();
  m_impl->odbc.closeResult();
  return names;
}

void SqlSession::runScripts(const std::vector<std::string>& paths, const std::function<void()>& beforeCommit) {
  std::vector<Script> scripts;
  scripts.reserve(paths.size());
  for (const std::string& path : paths) {
    scripts.push_back(readScript(path));
  }
  m_impl->together([&] {
    for (const Script& script : scripts) {
      m_impl->runAll(script);
    }
    if (beforeCommit) {
      beforeCommit();
    }
  });
}

void SqlSession::runStatementsOf(const std::string& path) {
  m_impl->runAll(readScript(path));
}

std::string sqlLiteral(const std::string& text) {
  if (text.find('\0') != std::string::npos) {
    throw RuntimeError("a text for the database cannot hold NUL", FailureKind::Data);
  }
  std::string literal = "'";
  for (const char sign : text) {
    literal.append(sign == '\'' ? 2 : 1, sign);
  }
  return literal + '\'';
}

}  // namespace zaroruntime
