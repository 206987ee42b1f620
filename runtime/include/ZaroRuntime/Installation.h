// Where things lie in an installation directory, and its database configuration.
#pragma once

#include <string>

namespace zaroruntime {

// The directory and the files in it, by name only: nothing is read.
class Installation {
 public:
  // `home` as ZARO_HOME names it.
  explicit Installation(std::string home);
  // The installation that ZARO_HOME names; throws RuntimeError when it is not set.
  static Installation fromEnvironment();

  const std::string& home() const { return m_home; }
  std::string path(const std::string& relative) const;
  std::string databaseIni() const;  // ZARO_DB_INI is obeyed
  std::string odbcIni() const;
  std::string settingsIni() const;
  std::string secretKey() const;
  std::string sqlDirectory() const;  // ZARO_DB_DIR is obeyed

 private:
  std::string m_home;
};

// Section "Database_Settings" of the database ini file, the password in clear.
struct DatabaseSettings {
  std::string dataSource;
  std::string user;
  std::string password;
  std::string database;
};

// The library hands the settings on in texts of limited length. Throws RuntimeError when one of them would be cut.
void requireSettingsFit(const DatabaseSettings& settings);

// Throws RuntimeError naming the file and the section or key that is wrong.
DatabaseSettings readDatabaseSettings(const Installation& installation);

}  // namespace zaroruntime
