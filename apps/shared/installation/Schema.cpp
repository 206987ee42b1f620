#include "installation/Schema.h"

#include <charconv>
#include <string>

#include "ZaroRuntime/RuntimeError.h"

using zaroruntime::Dialect;

namespace {

struct SchemaQuery {
  Dialect dialect;
  const char* table;  // a row with a value if and only if the table is there
};

constexpr SchemaQuery kSchemaQueries[] = {
    {Dialect::SQLite, "SELECT name FROM sqlite_master WHERE type = 'table' AND name = 'schema_version'"},
    {Dialect::PostgreSQL, "SELECT to_regclass('schema_version')"},
};

bool hasVersionTable(zaroruntime::SqlSession& session, Dialect dialect) {
  for (const SchemaQuery& query : kSchemaQueries) {
    if (query.dialect == dialect) {
      return session.value(query.table).has_value();
    }
  }
  return true;  // the query of the version says what is wrong
}

}  // namespace

std::optional<int> installedSchemaVersion(zaroruntime::SqlSession& session, Dialect dialect) {
  if (!hasVersionTable(session, dialect)) {
    return std::nullopt;
  }
  const std::string text = session.value("SELECT max(version) FROM schema_version").value_or("");
  int version = 0;
  const auto read = std::from_chars(text.data(), text.data() + text.size(), version);
  if (read.ec != std::errc() || read.ptr != text.data() + text.size()) {
    throw zaroruntime::RuntimeError("table schema_version holds no version");
  }
  return version;
}

bool hasRows(zaroruntime::SqlSession& session) {
  for (const char* table :
       {"administrator", "entity", "named_object", "policy_rule", "component", "global_setting", "manual_rule_order"}) {
    if (session.value(std::string("SELECT 1 FROM ") + table + " LIMIT 1")) {
      return true;
    }
  }
  return false;
}
