// The version of the database schema that programs and statement files of this release are written for. On any other
// no program writes: what a statement means there is not known.
#pragma once

#include <optional>
#include <string>

#include "ZaroRuntime/SqlSession.h"

namespace zaroruntime {

// Change together with both schema.sql files of home/sql, and with an upgrade script beside each.
constexpr int kSchemaVersion = 3;

// What tells the version of a database, in the column "SchemaVersion". It fails where there is no schema of ours.
extern const char* const kSchemaVersionQuery;

// Throws RuntimeError unless `stored`, as the query gave it, is this version.
void requireSchemaVersion(const std::optional<std::string>& stored);
// The same for the database of a session.
void requireSchemaVersion(SqlSession& session);

// The version of a database; nothing when it has no schema of ours. Throws RuntimeError.
std::optional<int> installedSchemaVersion(SqlSession& session);

}  // namespace zaroruntime
