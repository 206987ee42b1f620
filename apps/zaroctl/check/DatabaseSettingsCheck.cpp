#include <sys/stat.h>

#include <filesystem>
#include <optional>
#include <string>

#include "ZaroRuntime/IniFile.h"
#include "ZaroRuntime/RuntimeError.h"
#include "ZaroRuntime/StoredPassword.h"
#include "check/Checks.h"

namespace fs = std::filesystem;
using zaroruntime::DatabaseSettings;
using zaroruntime::IniFile;
using zaroruntime::Installation;
using zaroruntime::RuntimeError;

namespace {

constexpr const char* kSection = "Database_Settings";

class DatabaseSettingsCheck {
 public:
  DatabaseSettingsCheck(const Installation& installation, Findings& findings)
      : m_installation(installation), m_findings(findings) {}

  std::optional<DatabaseSettings> run() {
    _checkFile();
    _checkKey();
    _checkPassword();
    _checkFit();
    return m_settings;
  }

 private:
  void _checkFile() {
    const std::string path = m_installation.databaseIni();
    std::optional<IniFile> ini;
    if (!m_findings.check("database settings", [&] {
          ini.emplace(path, IniFile::Malformed::Refused);
          if (!ini->hasSection(kSection)) {
            throw RuntimeError(path + ": section [" + kSection + "] is missing");
          }
          return path + ": readable";
        })) {
      return;
    }
    DatabaseSettings settings;
    const struct {
      const char* key;
      std::string& value;
    } required[] = {{"DataSourceName", settings.dataSource}, {"UserId", settings.user}, {"Database", settings.database}};
    bool complete = true;
    for (const auto& row : required) {
      if (const auto value = ini->get(kSection, row.key)) {
        row.value = *value;
      } else {
        m_findings.wrong("database settings", path + ": section [" + kSection + "]: key " + row.key + " is missing");
        complete = false;
      }
    }
    m_storedPassword = ini->get(kSection, "Password").value_or("");
    if (complete) {
      m_settings = settings;
    }
  }

  bool _isPasswordEncrypted() const { return m_storedPassword && zaroruntime::isEncryptedPassword(*m_storedPassword); }

  void _checkKey() {
    const std::string path = m_installation.secretKey();
    std::error_code ignored;
    if (m_storedPassword && !_isPasswordEncrypted() && !fs::exists(fs::symlink_status(path, ignored))) {
      m_findings.ok("key", path + ": absent; no encrypted password needs it");
      return;
    }
    m_hasKey = m_findings.check("key", [&] {
      try {
        zaroruntime::checkSecretKey(path);
      } catch (const RuntimeError& failure) {
        const bool lost = !fs::exists(fs::symlink_status(path, ignored));
        throw RuntimeError(
            failure.what() + std::string(lost ? " (zaroctl password makes one, and stores the password again)" : ""),
            failure.kind());
      }
      return path + ": private and whole";
    });
  }

  void _checkPassword() {
    if (!m_storedPassword) {
      return;
    }
    std::string clear = *m_storedPassword;
    if (!_isPasswordEncrypted()) {
      m_findings.check("password", [&] { return _clearPasswordFinding(); });
    } else if (!m_hasKey || !m_findings.check("password", [&] {
                 clear = _decryptedPassword();
                 return "stored encrypted; the key opens it";
               })) {
      m_settings.reset();  // connecting would only say that the password is wrong
    }
    if (m_settings) {
      m_settings->password = clear;
    }
  }

  std::string _clearPasswordFinding() const {
    if (m_storedPassword->empty()) {
      return "none stored";
    }
    const std::string path = m_installation.databaseIni();
    struct stat status = {};
    if (::stat(path.c_str(), &status) == 0 && (status.st_mode & S_IROTH) != 0) {
      throw RuntimeError(path + ": the password is stored in clear, and every user can read the file (chmod o-r " +
                         path + ", or store it encrypted with zaroctl password)");
    }
    return "stored in clear";
  }

  std::string _decryptedPassword() const {
    try {
      return zaroruntime::decryptPassword(*m_storedPassword, m_installation.secretKey());
    } catch (const RuntimeError& failure) {
      throw RuntimeError(m_installation.databaseIni() + ": key Password: " + failure.what(), failure.kind());
    }
  }

  void _checkFit() {
    if (!m_settings) {
      return;
    }
    const std::string path = m_installation.databaseIni();
    m_findings.check("database settings", [&] {
      try {
        zaroruntime::requireSettingsFit(*m_settings);
      } catch (const RuntimeError& failure) {
        throw RuntimeError(path + ": " + failure.what(), failure.kind());
      }
      return path + ": short enough for the connection string";
    });
  }

  const Installation& m_installation;
  Findings& m_findings;
  bool m_hasKey = false;
  std::optional<std::string> m_storedPassword;
  std::optional<DatabaseSettings> m_settings;
};

}  // namespace

std::optional<DatabaseSettings> checkDatabaseSettings(const Installation& installation, Findings& findings) {
  return DatabaseSettingsCheck(installation, findings).run();
}
