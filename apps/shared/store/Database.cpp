#include "store/Database.h"

#include "ZaroRuntime/ConnectionPool.h"
#include "ZaroRuntime/Installation.h"
#include "ZaroRuntime/LastFailure.h"
#include "ZaroRuntime/SchemaVersion.h"

using zaroruntime::Dialect;
using zaroruntime::RuntimeError;

namespace {

// Seconds; the user waits at the terminal.
constexpr int kConnectTimeOut = 10;
// More than a program's units of work that are open at a time. A connection is made when it is needed.
constexpr int kPoolSize = 4;
constexpr int kEndOfRows = 1;  // of fetchNextRow

// The database that the library was made ready for.
struct Target {
  Dialect dialect = Dialect::Other;
  std::string database;
};

Target& target() {
  static Target one;
  return one;
}

struct PoolClosing {
  ~PoolClosing() { zaroruntime::closePools(); }
};

// What an operation of the platform throws comes out as a DatabaseError.
template <typename Operation>
auto throwingErrors(Operation operation) -> decltype(operation()) {
  try {
    return operation();
  } catch (const char* thrown) {
    throw DatabaseError(thrown, zaroruntime::lastFailureKind());
  }
}

// Looks at the version of a database, which no work on it goes before.
template <typename Look>
void requireVersion(const std::string& database, Look look) {
  try {
    look();
  } catch (const RuntimeError& failure) {
    throw DatabaseError("database " + database + ": " + failure.what(), failure.kind());
  }
}

void requireLibrarySchema(ZARO::RdbmsInterface& db) {
  requireVersion(target().database, [&] {
    const std::optional<std::string> stored = throwingErrors([&] {
      db.executeSQL(zaroruntime::kSchemaVersionQuery);
      const char* text = db.fetchNextRow() == 0 ? db.getColVal("SchemaVersion") : nullptr;
      return text != nullptr ? std::optional<std::string>(text) : std::nullopt;
    });
    zaroruntime::requireSchemaVersion(stored);
  });
}

}  // namespace

DatabaseError DatabaseError::because(const std::string& what) {
  return DatabaseError(what + ": " + databaseFailure(), zaroruntime::lastFailureKind());
}

std::unique_ptr<ZARO::RdbmsInterface> connectToDatabase() {
  // The library answers true or false and leaves the reason to the log, so the settings are read here first.
  const auto installation = zaroruntime::Installation::fromEnvironment();
  const auto settings = zaroruntime::readDatabaseSettings(installation);
  target() = {zaroruntime::readDataSource(installation, settings.dataSource).dialect, settings.database};
  zaroruntime::setPoolConnecting(kConnectTimeOut, 0);
  zaroruntime::forgetFailures();
  if (!ZARO::RdbmsInterface::Init(kPoolSize, nullptr, nullptr, nullptr, nullptr, nullptr)) {
    throw RuntimeError(databaseFailure(), zaroruntime::lastFailureKind());
  }
  // Destroyed before the driver's own exit handlers, since it is constructed after them.
  static const PoolClosing closing;
  auto db = std::make_unique<ZARO::RdbmsInterface>();
  requireLibrarySchema(*db);
  return db;
}

void requireLibrary() {
  static const bool ready = connectToDatabase() != nullptr;
  static_cast<void>(ready);
}

void requireOwnSchema(zaroruntime::SqlSession& session, const std::string& database) {
  requireVersion(database, [&] { zaroruntime::requireSchemaVersion(session); });
}

std::string databaseFailure() {
  const std::string reason = zaroruntime::lastFailure();
  return reason.empty() ? "the database did not hold what the library reads; see zaroctl check" : reason;
}

StoreConnection::Ready::Ready() {
  requireLibrary();
}

Dialect StoreConnection::dialect() const {
  return target().dialect;
}

void StoreConnection::requireOwnSchema() {
  requireLibrarySchema(m_library);
}

void StoreConnection::run(const std::string& statement) {
  throwingErrors([&] { m_library.executeSQL(statement.c_str()); });
}

std::vector<StoreConnection::Row> StoreConnection::rows(const std::string& query,
                                                        const std::vector<const char*>& columns) {
  return throwingErrors([&] {
    std::vector<Row> rows;
    m_library.executeSQL(query.c_str());
    int next = 0;
    while ((next = m_library.fetchNextRow()) == 0) {
      Row& row = rows.emplace_back();
      row.reserve(columns.size());
      for (const char* column : columns) {
        const char* text = m_library.getColVal(column);
        row.push_back(text != nullptr ? std::optional<std::string>(text) : std::nullopt);
      }
    }
    if (next != kEndOfRows) {
      throw DatabaseError::because("not all rows came");
    }
    return rows;
  });
}

std::optional<std::string> StoreConnection::value(const std::string& query, const char* column) {
  const auto found = rows(query, {column});
  return found.empty() ? std::nullopt : found.front().front();
}

void StoreConnection::lockTable(const char* table) {
  if (dialect() == Dialect::PostgreSQL) {
    run(std::string("LOCK TABLE ") + table + " IN SHARE ROW EXCLUSIVE MODE");
  }
}

const char* StoreConnection::forUpdate() const {
  return dialect() == Dialect::PostgreSQL ? " FOR UPDATE" : "";
}

const char* StoreConnection::forReference() const {
  return dialect() == Dialect::PostgreSQL ? " FOR KEY SHARE" : "";
}
