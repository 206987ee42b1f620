#include "ZaroRuntime/SchemaVersion.h"

#include <charconv>
#include <string>

#include "ZaroRuntime/RuntimeError.h"

namespace zaroruntime {

namespace {

struct TableQuery {
  Dialect dialect;
  const char* text;  // a row with a value if and only if the table of versions is there
};

constexpr TableQuery kTableQueries[] = {
    {Dialect::SQLite, "SELECT name FROM sqlite_master WHERE type = 'table' AND name = 'schema_version'"},
    {Dialect::PostgreSQL, "SELECT to_regclass('schema_version')"},
};

bool hasVersionTable(SqlSession& session) {
  for (const TableQuery& query : kTableQueries) {
    if (query.dialect == session.dialect()) {
      return session.value(query.text).has_value();
    }
  }
  return true;  // the query of the version says what is wrong
}

int versionIn(const std::optional<std::string>& stored) {
  const std::string text = stored.value_or("");
  int version = 0;
  const auto read = std::from_chars(text.data(), text.data() + text.size(), version);
  if (read.ec != std::errc() || read.ptr != text.data() + text.size()) {
    throw RuntimeError("table schema_version holds no version", FailureKind::Configuration);
  }
  return version;
}

}  // namespace

const char* const kSchemaVersionQuery = "SELECT max(version) AS \"SchemaVersion\" FROM schema_version";

void requireSchemaVersion(const std::optional<std::string>& stored) {
  const int version = versionIn(stored);
  if (version != kSchemaVersion) {
    throw RuntimeError("schema version " + std::to_string(version) + ", but this program works on version " +
                           std::to_string(kSchemaVersion) +
                           (version < kSchemaVersion ? "; run zaroctl schema upgrade" : ""),
                       FailureKind::Configuration);
  }
}

void requireSchemaVersion(SqlSession& session) {
  requireSchemaVersion(session.value(kSchemaVersionQuery));
}

std::optional<int> installedSchemaVersion(SqlSession& session) {
  if (!hasVersionTable(session)) {
    return std::nullopt;
  }
  return versionIn(session.value(kSchemaVersionQuery));
}

}  // namespace zaroruntime
