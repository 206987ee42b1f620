#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "ZaroRuntime/RuntimeError.h"
#include "check/Checks.h"

using zaroruntime::DataSource;
using zaroruntime::SqlSession;

namespace {

constexpr int kConnectTimeOut = 10;  // seconds

}  // namespace

std::optional<CheckedDatabase> checkConnection(const zaroruntime::Installation& installation,
                                               const zaroruntime::DatabaseSettings& settings, Findings& findings) {
  std::optional<DataSource> source;
  if (!findings.check("data source", [&] {
        source = zaroruntime::readDataSource(installation, settings.dataSource);
        return installation.odbcIni() + ": section [" + source->name + "]: driver " + source->driver;
      })) {
    return std::nullopt;
  }
  std::unique_ptr<SqlSession> session;
  if (!findings.check("connection", [&] {
        session = std::make_unique<SqlSession>(*source, settings, installation, kConnectTimeOut);
        if (session->value("SELECT 1") != "1") {
          throw zaroruntime::RuntimeError("database " + settings.database + ": SELECT 1 gave something else");
        }
        return "database " + settings.database + " answers";
      })) {
    return std::nullopt;
  }
  return CheckedDatabase{settings.database, *source, std::move(session)};
}
