#include "ZaroRuntime/Installation.h"

#include <cstdlib>
#include <cstring>
#include <utility>

#include "ZaroRuntime/IniFile.h"
#include "ZaroRuntime/RuntimeError.h"
#include "ZaroRuntime/StoredPassword.h"

namespace zaroruntime {

namespace {

// What the library keeps of each setting, and of the connection string: one byte less than its buffer, because a
// string that fills it may have been cut.
constexpr std::size_t kLongestSetting = 255;
constexpr std::size_t kLongestConnectionString = 510;

}  // namespace

Installation::Installation(std::string home) : m_home(std::move(home)) {
  // A backslash ends a directory too, as it does for the library.
  if (m_home.empty() || (m_home.back() != '/' && m_home.back() != '\\')) {
    m_home += '/';
  }
}

Installation Installation::fromEnvironment() {
  const char* home = std::getenv("ZARO_HOME");
  if (home == nullptr || *home == '\0') {
    throw RuntimeError("ZARO_HOME is not set: it names the installation directory", FailureKind::Configuration);
  }
  return Installation(home);
}

std::string Installation::path(const std::string& relative) const {
  return m_home + relative;
}

std::string Installation::databaseIni() const {
  const char* name = std::getenv("ZARO_DB_INI");
  return path(std::string("config/") + (name != nullptr ? name : "database.ini"));
}

std::string Installation::odbcIni() const {
  return path("config/odbc.ini");
}

std::string Installation::settingsIni() const {
  return path("config/zaro.ini");
}

std::string Installation::secretKey() const {
  return path("config/secret.key");
}

std::string Installation::sqlDirectory() const {
  const char* directory = std::getenv("ZARO_DB_DIR");
  return path(directory != nullptr ? std::string("sql/") + directory : "sql");
}

void requireSettingsFit(const DatabaseSettings& settings) {
  const struct {
    const char* key;
    const std::string& value;
  } rows[] = {{"DataSourceName", settings.dataSource}, {"UserId", settings.user}, {"Password", settings.password}};
  std::size_t length = std::strlen("ODBC;DRIVER=;DSN=;UID=;PWD=;DATABASE=") + settings.database.size();
  for (const auto& row : rows) {
    if (row.value.size() > kLongestSetting) {
      throw RuntimeError(std::string(row.key) + " is longer than " + std::to_string(kLongestSetting) + " bytes",
                         FailureKind::Configuration);
    }
    length += row.value.size();
  }
  if (length > kLongestConnectionString) {
    throw RuntimeError("DataSourceName, UserId, Password and Database are too long together, by " +
                           std::to_string(length - kLongestConnectionString) + " bytes",
                       FailureKind::Configuration);
  }
}

DatabaseSettings readDatabaseSettings(const Installation& installation) {
  static constexpr const char* kSection = "Database_Settings";
  const std::string path = installation.databaseIni();
  const IniFile ini(path, IniFile::Malformed::Refused);
  if (!ini.hasSection(kSection)) {
    throw RuntimeError(path + ": section [" + kSection + "] is missing", FailureKind::Configuration);
  }
  const auto required = [&](const char* key) {
    auto value = ini.get(kSection, key);
    if (!value) {
      throw RuntimeError(path + ": section [" + kSection + "]: key " + key + " is missing", FailureKind::Configuration);
    }
    return *value;
  };
  DatabaseSettings settings;
  settings.dataSource = required("DataSourceName");
  settings.user = required("UserId");
  settings.database = required("Database");
  settings.password = ini.get(kSection, "Password").value_or("");
  try {
    if (isEncryptedPassword(settings.password)) {
      settings.password = decryptPassword(settings.password, installation.secretKey());
    }
    requireSettingsFit(settings);
  } catch (const RuntimeError& failure) {
    throw RuntimeError(path + ": " + failure.what(), failure.kind());
  }
  return settings;
}

}  // namespace zaroruntime
