#include "store/Database.h"

#include "ZaroRuntime/DataSource.h"
#include "ZaroRuntime/Installation.h"
#include "ZaroRuntime/LastFailure.h"
#include "ZaroRuntime/RuntimeError.h"

using zaroruntime::RuntimeError;

namespace {

// Seconds; somebody waits at the terminal.
constexpr int kConnectTimeOut = 10;

}  // namespace

std::unique_ptr<ZARO::RdbmsInterface> connectToDatabase() {
  // The library answers true or false and leaves the reason to the log, so the settings are read here first.
  const auto installation = zaroruntime::Installation::fromEnvironment();
  const auto settings = zaroruntime::readDatabaseSettings(installation);
  zaroruntime::readDataSource(installation, settings.dataSource);
  ZARO::RdbmsInterface::setDbConnectTimeOut(kConnectTimeOut);
  if (!ZARO::RdbmsInterface::Init(nullptr, nullptr, nullptr, nullptr)) {
    throw RuntimeError("the library could not be initialised; run with -v for its messages");
  }
  auto db = std::make_unique<ZARO::RdbmsInterface>();
  // The object is there even when it could not connect, and its first statement would wait for the server once more.
  if (!zaroruntime::lastFailure().empty()) {
    throw RuntimeError(zaroruntime::lastFailure());
  }
  return db;
}

std::unique_ptr<zaroruntime::SqlSession> openSession() {
  const auto installation = zaroruntime::Installation::fromEnvironment();
  const auto settings = zaroruntime::readDatabaseSettings(installation);
  const auto source = zaroruntime::readDataSource(installation, settings.dataSource);
  return std::make_unique<zaroruntime::SqlSession>(source, settings, installation, kConnectTimeOut);
}

std::string databaseFailure() {
  const std::string reason = zaroruntime::lastFailure();
  return reason.empty() ? "the database failed; run with -v for its messages" : reason;
}
