#include <strings.h>
#include <sys/stat.h>

#include <algorithm>
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

// A password of the driver's own keys, or of its client library's parameters. The runtime takes none from here, but a
// driver may.
bool holdsPassword(const std::pair<std::string, std::string>& option) {
  const auto isKey = [&](const char* key) { return strcasecmp(option.first.c_str(), key) == 0; };
  return isKey("Password") || isKey("PWD") || (isKey("pqopt") && option.second.find("password=") != std::string::npos);
}

// Throws RuntimeError.
void requirePasswordsPrivate(const std::string& path, const DataSource& source) {
  const auto& options = source.options;
  struct stat status = {};
  if (std::any_of(options.begin(), options.end(), holdsPassword) && ::stat(path.c_str(), &status) == 0 &&
      (status.st_mode & S_IROTH) != 0) {
    throw zaroruntime::RuntimeError(path + ": section [" + source.name +
                                    "]: it holds a password, and every user can read the file (chmod o-r " + path +
                                    ", or store the password with zaroctl password)");
  }
}

}  // namespace

std::optional<CheckedDatabase> checkConnection(const zaroruntime::Installation& installation,
                                               const zaroruntime::DatabaseSettings& settings, Findings& findings) {
  std::optional<DataSource> source;
  if (!findings.check("data source", [&] {
        source = zaroruntime::readDataSource(installation, settings.dataSource);
        requirePasswordsPrivate(installation.odbcIni(), *source);
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
