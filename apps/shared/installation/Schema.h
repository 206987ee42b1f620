// The database schema that the statement files of this program are written for.
#pragma once

#include <optional>

#include "ZaroRuntime/DataSource.h"
#include "ZaroRuntime/SqlSession.h"

// Change together with both schema.sql files of home/sql.
constexpr int kSchemaVersion = 1;

// The version that a database has; nothing when it has no schema of ours. Throws RuntimeError.
std::optional<int> installedSchemaVersion(zaroruntime::SqlSession& session, zaroruntime::Dialect dialect);

// Whether a database with the schema holds any row of an administrator, entity, object, rule or component, or any
// setting. Throws RuntimeError.
bool hasRows(zaroruntime::SqlSession& session);
