// check
#include <strings.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "ZaroAction.h"
#include "ZaroRuntime/DataSource.h"
#include "ZaroRuntime/DisplayLanguage.h"
#include "ZaroRuntime/IniFile.h"
#include "ZaroRuntime/Installation.h"
#include "ZaroRuntime/RuntimeError.h"
#include "ZaroRuntime/SqlSession.h"
#include "ZaroRuntime/StatementFile.h"
#include "ZaroRuntime/StoredPassword.h"
#include "commands/CommandTree.h"
#include "commands/Commands.h"
#include "console/Text.h"
#include "installation/Schema.h"
#include "installation/StatementCatalog.h"

namespace fs = std::filesystem;
using zaroruntime::DatabaseSettings;
using zaroruntime::DataSource;
using zaroruntime::Dialect;
using zaroruntime::IniFile;
using zaroruntime::Installation;
using zaroruntime::RuntimeError;
using zaroruntime::SqlSession;

namespace {

constexpr int kConnectTimeOut = 10;  // seconds
constexpr const char* kDatabaseSection = "Database_Settings";
constexpr const char* kDisplaySection = "UiDisplay";

class Findings {
 public:
  void ok(const std::string& subject, const std::string& finding) { _add("ok", subject, finding); }
  void wrong(const std::string& subject, const std::string& finding) {
    _add("wrong", subject, finding);
    m_wrong = true;
  }

  // Runs one check, which answers what it found in order, or throws what is wrong. False when it threw.
  bool check(const std::string& subject, const std::function<std::string()>& look) {
    try {
      ok(subject, look());
      return true;
    } catch (const std::exception& failure) {
      wrong(subject, failure.what());
      return false;
    }
  }

  bool anyWrong() const { return m_wrong; }
  const Json& list() const { return m_list; }

 private:
  void _add(const char* state, const std::string& subject, const std::string& finding) {
    m_list.push_back({{"state", state}, {"subject", subject}, {"finding", finding}});
  }

  Json m_list = Json::array();
  bool m_wrong = false;
};

// Goes through an installation from its directory to its statements. What one step finds the later ones use; a step
// that lacks what an earlier one did not find is left out.
class InstallationCheck {
 public:
  InstallationCheck(const Installation& installation, Findings& findings)
      : m_installation(installation), m_findings(findings) {}

  void run() {
    _checkDatabaseIni();
    _checkSecretKey();
    _checkPassword();
    _checkSettingsFit();
    _checkSettingsIni();
    _checkDisplayLanguage();
    for (const std::string& language : _displayLanguages()) {
      _checkDisplayStrings(zaroruntime::displayFile(m_installation, language));
    }
    _checkDataSource();
    _checkConnection();
    if (_checkSchema()) {
      _checkEntities();
      _checkOwners();
    }
    for (const CataloguedStatement& statement : statementCatalog()) {
      _checkStatement(statement);
    }
  }

 private:
  void _checkDatabaseIni() {
    const std::string path = m_installation.databaseIni();
    std::optional<IniFile> ini;
    if (!m_findings.check("database settings", [&] {
          ini.emplace(path);
          if (!ini->hasSection(kDatabaseSection)) {
            throw RuntimeError(path + ": section [" + kDatabaseSection + "] is missing");
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
      if (const auto value = ini->get(kDatabaseSection, row.key)) {
        row.value = *value;
      } else {
        m_findings.wrong("database settings",
                         path + ": section [" + kDatabaseSection + "]: key " + row.key + " is missing");
        complete = false;
      }
    }
    m_storedPassword = ini->get(kDatabaseSection, "Password").value_or("");
    if (complete) {
      m_settings = settings;
    }
  }

  bool _isPasswordEncrypted() const { return m_storedPassword && zaroruntime::isEncryptedPassword(*m_storedPassword); }

  void _checkSecretKey() {
    const std::string path = m_installation.secretKey();
    std::error_code ignored;
    if (m_storedPassword && !_isPasswordEncrypted() && !fs::exists(fs::symlink_status(path, ignored))) {
      m_findings.ok("key", path + ": absent; no encrypted password needs it");
      return;
    }
    m_findings.check("key", [&] {
      zaroruntime::checkSecretKey(path);
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
    } else if (!m_findings.check("password", [&] {
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
      throw RuntimeError(path + ": the password is stored in clear, and everybody can read the file (chmod o-r " +
                         path + ", or store it encrypted with zaroctl password)");
    }
    return "stored in clear";
  }

  std::string _decryptedPassword() const {
    const std::string key = m_installation.secretKey();
    try {
      return zaroruntime::decryptPassword(*m_storedPassword, key);
    } catch (const RuntimeError& failure) {
      std::error_code ignored;
      const bool lost = !fs::exists(fs::symlink_status(key, ignored));
      throw RuntimeError(m_installation.databaseIni() + ": key Password: " + failure.what() +
                         (lost ? " (zaroctl password makes a new key and stores the password again)" : ""));
    }
  }

  void _checkSettingsFit() {
    if (!m_settings) {
      return;
    }
    const std::string path = m_installation.databaseIni();
    m_findings.check("database settings", [&] {
      try {
        zaroruntime::requireSettingsFit(*m_settings);
      } catch (const RuntimeError& failure) {
        throw RuntimeError(path + ": " + failure.what());
      }
      return path + ": short enough for the connection string";
    });
  }

  void _checkSettingsIni() {
    const std::string path = m_installation.settingsIni();
    m_findings.check("policy settings", [&] {
      const IniFile ini(path, IniFile::Malformed::Refused);
      for (const char* section : {"policy_server", "policy_client"}) {
        if (!ini.hasSection(section)) {
          throw RuntimeError(path + ": section [" + section + "] is missing");
        }
      }
      return path + ": readable";
    });
  }

  // The language that the installation is set to. Settings that cannot be read have their finding already.
  void _checkDisplayLanguage() {
    std::string configured;
    try {
      configured = zaroruntime::configuredDisplayLanguage(m_installation);
    } catch (const RuntimeError&) {
      return;
    }
    m_findings.check("display language", [&]() -> std::string {
      if (configured.empty()) {
        return "that of the locale";
      }
      const auto installed = zaroruntime::installedDisplayLanguages(m_installation);
      for (const std::string& name : zaroruntime::displayLanguageNames(configured)) {
        if (std::find(installed.begin(), installed.end(), name) != installed.end()) {
          return ::quoted(name);
        }
      }
      throw RuntimeError(m_installation.settingsIni() + ": section [display]: there are no display strings in " +
                         ::quoted(configured));
    });
  }

  // Those that have a file, and the one that must have.
  std::vector<std::string> _displayLanguages() const {
    auto languages = zaroruntime::installedDisplayLanguages(m_installation);
    if (std::find(languages.begin(), languages.end(), zaroruntime::kFallbackDisplayLanguage) == languages.end()) {
      languages.emplace_back(zaroruntime::kFallbackDisplayLanguage);
    }
    return languages;
  }

  void _checkDisplayStrings(const std::string& path) {
    m_findings.check("display strings", [&] {
      const IniFile ini(path);
      const std::string wrong = _wrongDisplayStrings(ini);
      if (!wrong.empty()) {
        throw RuntimeError(path + ": section [" + kDisplaySection + "]: " + wrong);
      }
      return path + ": complete";
    });
  }

  static std::string _wrongDisplayStrings(const IniFile& ini) {
    std::string wrong;
    const auto add = [&](const char* key, const char* what) {
      wrong.append(wrong.empty() ? "" : "; ").append("key ").append(key).append(what);
    };
    for (const ZaroAction::TokenPosition& token : ZaroAction::tokenPositions()) {
      const std::string text = ini.get(kDisplaySection, token.resourceKey).value_or("");
      if (text.empty()) {
        add(token.resourceKey, " is missing");
      } else if (!isPlainText(text)) {
        add(token.resourceKey, " is not UTF-8, or holds control characters");
      }
    }
    return wrong;
  }

  void _checkDataSource() {
    if (!m_settings) {
      return;
    }
    m_findings.check("data source", [&] {
      m_source = zaroruntime::readDataSource(m_installation, m_settings->dataSource);
      return m_installation.odbcIni() + ": section [" + m_source->name + "]: driver " + m_source->driver;
    });
  }

  void _checkConnection() {
    if (!m_settings || !m_source) {
      return;
    }
    m_findings.check("connection", [&] {
      m_session = std::make_unique<SqlSession>(*m_source, *m_settings, m_installation, kConnectTimeOut);
      if (m_session->value("SELECT 1") != "1") {
        throw RuntimeError("database " + m_settings->database + ": SELECT 1 gave something else");
      }
      return "database " + m_settings->database + " answers";
    });
  }

  bool _checkSchema() {
    return m_session && m_findings.check("schema", [&] {
      try {
        return _schemaFinding();
      } catch (const RuntimeError& failure) {
        throw RuntimeError("database " + m_settings->database + ": " + failure.what());
      }
    });
  }

  // Addresses are compared in lower case, so such a pattern is never found again when its parents are looked for, and
  // that fails for everybody below it.
  void _checkEntities() {
    _checkRows("entities", "SELECT name FROM entity WHERE type = 6 AND name <> lower(name) ORDER BY name",
               "no pattern with capitals", "patterns with capitals, which nobody below them can do with: ");
  }

  void _checkOwners() {
    _checkRows("objects",
               "SELECT name FROM named_object WHERE NOT EXISTS (SELECT 1 FROM named_object_owner WHERE object_id = id) "
               "ORDER BY name",
               "every one has an owner", "without an owner, so that nobody but the root sees them: ");
  }

  // Names that a query must not find.
  void _checkRows(const char* subject, const char* query, const char* right, const char* wrong) {
    m_findings.check(subject, [&] {
      const auto rows = m_session->rows(query);
      if (rows.empty()) {
        return std::string(right);
      }
      constexpr std::size_t kMostNames = 5;
      std::string names;
      for (std::size_t i = 0; i < std::min(rows.size(), kMostNames); ++i) {
        names.append(i == 0 ? "" : ", ").append(::quoted(rows[i].front().value_or("")));
      }
      if (rows.size() > kMostNames) {
        names += " and " + std::to_string(rows.size() - kMostNames) + " more";
      }
      throw RuntimeError("database " + m_settings->database + ": " + wrong + names);
    });
  }

  std::string _schemaFinding() {
    const auto version = installedSchemaVersion(*m_session, m_source->dialect);
    if (!version) {
      throw RuntimeError("there is no table schema_version (run " + m_installation.sqlDirectory() + "/schema.sql)");
    }
    if (*version != kSchemaVersion) {
      throw RuntimeError("schema version " + std::to_string(*version) + ", but this program works on version " +
                         std::to_string(kSchemaVersion));
    }
    return "version " + std::to_string(*version);
  }

  void _checkStatement(const CataloguedStatement& statement) {
    const std::string path = m_installation.sqlDirectory() + "/" + statement.file;
    m_findings.check("statement", [&] {
      const std::string conversions = zaroruntime::statementConversions(path);
      if (conversions != statement.conversions) {
        throw RuntimeError(path + ": takes parameters \"" + conversions + "\" instead of \"" + statement.conversions +
                           "\"");
      }
      if (statement.kind == StatementKind::Transaction || !_canTryStatements()) {
        return path + ": accepted";
      }
      try {
        _tryStatement(statement, harmlessStatement(path));
      } catch (const RuntimeError& failure) {
        throw RuntimeError(path + ": " + failure.what());
      }
      return path + ": understood by the database";
    });
  }

  // Has the database look at a statement without doing its work.
  void _tryStatement(const CataloguedStatement& statement, const std::string& text) {
    m_session->run("EXPLAIN " + text);
    if (statement.kind != StatementKind::Query) {
      return;  // there is no telling its columns without running it
    }
    const auto found = m_session->columns("SELECT * FROM (" + text + ") AS result WHERE 1 = 0");
    for (const char* column : statement.columns) {
      const bool there = std::any_of(found.begin(), found.end(),
                                     [&](const std::string& name) { return strcasecmp(name.c_str(), column) == 0; });
      if (!there) {
        throw RuntimeError(std::string("the result has no column ") + column);
      }
    }
  }

  bool _canTryStatements() const { return m_session && m_source->dialect != Dialect::Other; }

  const Installation& m_installation;
  Findings& m_findings;
  std::optional<std::string> m_storedPassword;
  std::optional<DatabaseSettings> m_settings;
  std::optional<DataSource> m_source;
  std::unique_ptr<SqlSession> m_session;
};

void checkHome(const Installation& installation) {
  std::error_code failure;
  if (!fs::is_directory(installation.home(), failure)) {
    throw RuntimeError(installation.home() + ": ZARO_HOME names no directory" +
                       (failure ? ": " + failure.message() : std::string()));
  }
}

ExitCode checkInstallation(Output& out) {
  Findings findings;
  std::optional<Installation> installation;
  if (findings.check("installation", [&] {
        installation = Installation::fromEnvironment();
        checkHome(*installation);
        return installation->home();
      })) {
    InstallationCheck(*installation, findings).run();
  }
  out.rows({{"state", "STATE"}, {"subject", "SUBJECT"}, {"finding", "FINDING"}}, findings.list());
  return findings.anyWrong() ? ExitCode::Failure : ExitCode::Found;
}

}  // namespace

void addCheck(CommandTree& tree) {
  tree.add("check", "Find out what is wrong with an installation",
           {"zaroctl check", "zaroctl --home /opt/gateway check --json"}, checkInstallation);
}
