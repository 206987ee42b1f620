#include "odbc/ConnectionString.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <initializer_list>
#include <iterator>
#include <vector>

#include "ZaroRuntime/RuntimeError.h"
#include "common/AsciiText.h"
#include "odbc/SqliteFile.h"

namespace zaroruntime {

namespace {

constexpr std::size_t kLongestString = 32767;  // a signed 16-bit length

struct Option {
  const char* key;
  const char* value;
};

// WAL lets readers go on beside a writer; a commit is on the disk before it is acknowledged; writers wait for each
// other, 5 seconds: SQLite waits for the time-out, and the driver, told that the database is locked, as long again;
// foreign keys count; texts are bytes.
const std::vector<Option> kSqliteDefaults = {
    {"JournalMode", "WAL"}, {"SyncPragma", "FULL"}, {"Timeout", "2500"}, {"FKSupport", "1"}, {"NoWCHAR", "1"},
};

// Protocol 7.4-2 makes a failed statement roll back alone; with the others a COMMIT after it claims success although it
// rolled back, or commits a half.
const std::vector<Option> kPostgresqlDefaults = {
    {"SSLmode", "prefer"},
    {"Protocol", "7.4-2"},
};

// The driver's option for parameters of its client library, of which the last of a name counts.
constexpr const char* kLibraryParameters = "pqopt";

// Gives a server up that has gone without a word, after 30 to 60 seconds.
constexpr const char* kKeepAlive = "tcp_user_timeout=30000 keepalives_idle=30 keepalives_interval=10 keepalives_count=3";

// Of several servers, the one that takes changes: a replica that still follows does not.
constexpr const char* kWhichTakesChanges = " target_session_attrs=read-write";

// Options that a data source may set to one value only.
struct RequiredOption {
  const char* key;
  const char* value;
  const char* reason;
};

constexpr RequiredOption kSqliteRequired[] = {
    {"StepAPI", "0", "rows would be lost"},
};

constexpr RequiredOption kPostgresqlRequired[] = {
    {"Protocol", "7.4-2", "transactions would be committed in part or not at all without a word"},
    {"A1", "7.4-2", "transactions would be committed in part or not at all without a word"},  // its short name
};

// The only keys whose values the PostgreSQL driver takes out of their braces; for the others they are part of the value.
const std::vector<std::string> kPostgresqlBraces = {"PWD", "ConnSettings", "A6", kLibraryParameters};

// The option with statements to execute after connecting, and its short name.
constexpr const char* kSessionSettings[] = {"ConnSettings", "A6"};

// Builds "KEY=value;..." with values in the driver's quoting.
class Builder {
 public:
  enum class Quoting { None, PostgreSQL, Braces };

  Builder(const DataSource& source, Quoting quoting) : m_source(source), m_quoting(quoting) {
    m_text = "DRIVER=";
    _appendPlain("Driver", source.driver);
  }

  void add(const std::string& key, const std::string& value) {
    if (key.find_first_of("=;{}") != std::string::npos) {
      throw RuntimeError(_where(key) + "the key holds a sign that connection strings reserve",
                         FailureKind::Configuration);
    }
    m_text += key + "=";
    if (!_takesBraces(key)) {
      _appendPlain(key, value);
      return;
    }
    m_text += '{';
    for (const char sign : value) {
      m_text.append(sign == '}' ? 2 : 1, sign);
    }
    m_text += "};";
  }

  // The defaults that the data source does not set itself, then what it sets, without `ownKeys`.
  void addOptions(const std::vector<Option>& defaults, std::initializer_list<const char*> ownKeys) {
    for (const Option& option : defaults) {
      if (!_isSet(option.key)) {
        add(option.key, option.value);
      }
    }
    for (const auto& option : m_source.options) {
      const bool own = std::any_of(ownKeys.begin(), ownKeys.end(),
                                   [&](const char* key) { return equalsIgnoringCase(option.first, key); });
      if (!own) {
        add(option.first, option.second);
      }
    }
  }

  std::string text() const {
    if (m_text.size() > kLongestString) {
      throw RuntimeError("data source " + m_source.name + ": its connection string is too long",
                         FailureKind::Configuration);
    }
    return m_text;
  }

 private:
  bool _isSet(const char* key) const {
    return std::any_of(m_source.options.begin(), m_source.options.end(),
                       [&](const auto& option) { return equalsIgnoringCase(option.first, key); });
  }

  bool _takesBraces(const std::string& key) const {
    return m_quoting == Quoting::Braces ||
           (m_quoting == Quoting::PostgreSQL &&
            std::any_of(kPostgresqlBraces.begin(), kPostgresqlBraces.end(),
                        [&](const std::string& known) { return equalsIgnoringCase(key, known); }));
  }

  std::string _where(const std::string& key) const { return "data source " + m_source.name + ": " + key + ": "; }

  // For values that no quoting protects.
  void _appendPlain(const std::string& key, const std::string& value) {
    if (value.find(';') != std::string::npos || value.find('\0') != std::string::npos) {
      throw RuntimeError(_where(key) + "a semicolon cannot be passed to this driver", FailureKind::Configuration);
    }
    m_text += value + ";";
  }

  const DataSource& m_source;
  Quoting m_quoting;
  std::string m_text;
};

std::string refusal(const DataSource& source, const RequiredOption& required) {
  return "data source " + source.name + ": " + required.key + " must be " + required.value + ": " + required.reason;
}

template <std::size_t Count>
void refuseOtherValues(const DataSource& source, const RequiredOption (&required)[Count]) {
  for (const RequiredOption& row : required) {
    for (const auto& option : source.options) {
      if (equalsIgnoringCase(option.first, row.key) && option.second != row.value) {
        throw RuntimeError(refusal(source, row), FailureKind::Configuration);
      }
    }
  }
}

// What the data source sets; empty where it does not.
std::string optionOf(const DataSource& source, const char* key) {
  const auto found = std::find_if(source.options.begin(), source.options.end(),
                                  [key](const auto& option) { return equalsIgnoringCase(option.first, key); });
  return found == source.options.end() ? std::string() : found->second;
}

std::string databaseName(const DataSource& source, const DatabaseSettings& settings) {
  std::string name = settings.database.empty() ? optionOf(source, "Database") : settings.database;
  if (name.empty()) {
    throw RuntimeError("data source " + source.name + ": no database is named", FailureKind::Configuration);
  }
  return name;
}

// The driver would make an empty database out of a mistyped name, so the file must be there.
std::string databaseFile(const std::string& name, const Installation& installation) {
  std::string path = name.front() == '/' ? name : installation.path(name);
  struct stat status = {};
  if (::stat(path.c_str(), &status) != 0) {
    throw RuntimeError("database file " + path + ": " + std::strerror(errno),
                       kindOfFileError(errno, FailureKind::Configuration));
  }
  if (!S_ISREG(status.st_mode)) {
    throw RuntimeError("database file " + path + ": not a regular file", FailureKind::Configuration);
  }
  return openedSqliteFile(path);
}

// No user or password goes to SQLite: it has none, and its driver would take a semicolon in one for a new option.
std::string sqliteString(const DataSource& source, const DatabaseSettings& settings, const Installation& installation) {
  refuseOtherValues(source, kSqliteRequired);
  Builder builder(source, Builder::Quoting::None);
  builder.add("Database", databaseFile(databaseName(source, settings), installation));
  builder.addOptions(kSqliteDefaults, {"Database"});
  return builder.text();
}

void addCredentials(Builder& builder, const DataSource& source, const DatabaseSettings& settings) {
  builder.add("Database", databaseName(source, settings));
  builder.add("UID", settings.user);
  builder.add("PWD", settings.password);
}

// Ours, then what the data source sets, which counts.
std::string libraryParameters(const DataSource& source) {
  std::string parameters = kKeepAlive;
  if (optionOf(source, "Servername").find(',') != std::string::npos) {
    parameters += kWhichTakesChanges;
  }
  const std::string own = optionOf(source, kLibraryParameters);
  return own.empty() ? parameters : parameters + " " + own;
}

std::string postgresqlString(const DataSource& source, const DatabaseSettings& settings) {
  refuseOtherValues(source, kPostgresqlRequired);
  Builder builder(source, Builder::Quoting::PostgreSQL);
  addCredentials(builder, source, settings);
  builder.add(kLibraryParameters, libraryParameters(source));
  builder.addOptions(kPostgresqlDefaults, {"Database", "UID", "PWD", kLibraryParameters});
  return builder.text();
}

std::string serverString(const DataSource& source, const DatabaseSettings& settings) {
  Builder builder(source, Builder::Quoting::Braces);
  addCredentials(builder, source, settings);
  builder.addOptions({}, {"Database", "UID", "PWD"});
  return builder.text();
}

}  // namespace

std::string connectionString(const DataSource& source, const DatabaseSettings& settings,
                             const Installation& installation) {
  switch (source.dialect) {
    case Dialect::SQLite:
      return sqliteString(source, settings, installation);
    case Dialect::PostgreSQL:
      return postgresqlString(source, settings);
    case Dialect::Other:
      break;
  }
  return serverString(source, settings);
}

std::string sessionSettings(const DataSource& source) {
  if (source.dialect == Dialect::PostgreSQL) {
    for (const auto& option : source.options) {
      if (std::any_of(std::begin(kSessionSettings), std::end(kSessionSettings),
                      [&](const char* key) { return equalsIgnoringCase(option.first, key); })) {
        return option.second + "\n;";  // it may end in a comment
      }
    }
  }
  return {};
}

}  // namespace zaroruntime
