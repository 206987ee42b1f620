// The two files that say how the database is reached, and the connection string that is made of them: it holds what
// they say, each option for itself.
#include <strings.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "ConfigFileOnDisk.h"
#include "FuzzInput.h"
#include "FuzzInstallation.h"
#include "ZaroRuntime/IniFile.h"
#include "odbc/ConnectionString.h"

namespace {

using zaroruntime::DatabaseSettings;
using zaroruntime::DataSource;
using zaroruntime::Dialect;
using zaroruntime::Installation;
using Option = std::pair<std::string, std::string>;

bool isBraced(const DataSource& source, const std::string& key) {
  if (source.dialect != Dialect::PostgreSQL) {
    return source.dialect == Dialect::Other && key != "DRIVER";
  }
  constexpr const char* kKeys[] = {"PWD", "ConnSettings", "A6", "pqopt"};
  return std::any_of(std::begin(kKeys), std::end(kKeys),
                     [&](const char* known) { return strcasecmp(known, key.c_str()) == 0; });
}

// The options of a connection string as the source's driver takes them.
std::vector<Option> optionsIn(const std::string& text, const DataSource& source) {
  std::vector<Option> options;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t sign = text.find('=', at);
    FUZZ_CHECK(sign != std::string::npos);
    const std::string key = text.substr(at, sign - at);
    std::string value;
    at = sign + 1;
    if (isBraced(source, key)) {
      FUZZ_CHECK(text[at] == '{');
      for (++at; text.compare(at, 2, "};") != 0; ++at) {
        at += text.compare(at, 2, "}}") == 0 ? 1 : 0;
        FUZZ_CHECK(at < text.size());
        value += text[at];
      }
      at += 2;
    } else {
      const std::size_t end = text.find(';', at);
      FUZZ_CHECK(end != std::string::npos);
      value = text.substr(at, end - at);
      at = end + 1;
    }
    options.emplace_back(key, value);
  }
  return options;
}

// Defaults of ours, by their keys.
bool isOurs(const std::string& key) {
  constexpr const char* kKeys[] = {"JournalMode", "SyncPragma", "Timeout",  "FKSupport",
                                   "NoWCHAR",     "SSLmode",    "Protocol", "pqopt"};
  return std::any_of(std::begin(kKeys), std::end(kKeys), [&](const char* known) { return key == known; });
}

void check(const std::string& text, const DataSource& source, const DatabaseSettings& settings) {
  std::vector<Option> left = source.options;
  for (const auto& [key, value] : optionsIn(text, source)) {
    const auto own = std::find(left.begin(), left.end(), Option(key, value));
    if (own != left.end()) {
      left.erase(own);
    } else if (key == "DRIVER") {
      FUZZ_CHECK(value == source.driver);
    } else if (key == "UID") {
      FUZZ_CHECK(value == settings.user);
    } else if (key == "PWD") {
      FUZZ_CHECK(value == settings.password);
    } else {
      FUZZ_CHECK(isOurs(key) || key == "Database");
    }
  }
}

}  // namespace

// database.ini, a NUL, odbc.ini.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const FuzzInstallation directory;
  directory.write("data/zaro.db", "");
  const std::string input = textOf(data, size);
  const std::size_t middle = std::min(input.find('\0'), input.size());
  directory.write("config/database.ini", input.substr(0, middle));
  directory.write("config/odbc.ini", input.substr(std::min(middle + 1, input.size())));
  const Installation installation(directory.home());
  const auto settings = valueOf([&] { return readDatabaseSettings(installation); });
  if (!settings) {
    return 0;
  }
  // The library reads the same file in its own way.
  const ZARO::ConfigFileOnDisk file(installation.databaseIni().c_str());
  std::string value;
  FUZZ_CHECK(file.getValue("Database_Settings", "DataSourceName", value) && value == settings->dataSource);
  FUZZ_CHECK(file.getValue("Database_Settings", "Database", value) && value == settings->database);

  const auto source = valueOf([&] { return readDataSource(installation, settings->dataSource); });
  if (source) {
    if (const auto text = valueOf([&] { return connectionString(*source, *settings, installation); })) {
      check(*text, *source, *settings);
    }
    const std::string statements = sessionSettings(*source);
    FUZZ_CHECK(statements.empty() || statements.back() == ';');
  }
  return 0;
}
