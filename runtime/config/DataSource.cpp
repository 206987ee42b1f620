#include "ZaroRuntime/DataSource.h"

#include <algorithm>

#include "ZaroRuntime/IniFile.h"
#include "ZaroRuntime/RuntimeError.h"
#include "common/AsciiText.h"

namespace zaroruntime {

namespace {

struct DialectRow {
  Dialect dialect;
  const char* name;
  const char* inDriver;  // part of the lower-case names of its drivers
};

constexpr DialectRow kDialects[] = {
    {Dialect::SQLite, "sqlite", "sqlite"},
    {Dialect::PostgreSQL, "postgresql", "psqlodbc"},
    {Dialect::PostgreSQL, "postgresql", "postgres"},
    {Dialect::Other, "other", ""},
};

Dialect dialectOf(const std::string& driver) {
  std::string lower = driver;
  std::transform(lower.begin(), lower.end(), lower.begin(), asciiLower);
  for (const DialectRow& row : kDialects) {
    if (lower.find(row.inDriver) != std::string::npos) {
      return row.dialect;
    }
  }
  return Dialect::Other;
}

}  // namespace

const char* dialectName(Dialect dialect) {
  for (const DialectRow& row : kDialects) {
    if (row.dialect == dialect) {
      return row.name;
    }
  }
  return "other";
}

DataSource readDataSource(const Installation& installation, const std::string& name) {
  const std::string path = installation.odbcIni();
  const IniFile ini(path);
  if (name.empty() || !ini.hasSection(name)) {
    throw RuntimeError(path + ": there is no section [" + name + "] for the data source", FailureKind::Configuration);
  }
  DataSource source;
  source.name = name;
  for (auto& item : ini.items(name)) {
    if (equalsIgnoringCase(item.first, "Driver")) {
      source.driver = item.second;
    } else {
      source.options.push_back(std::move(item));
    }
  }
  if (source.driver.empty()) {
    throw RuntimeError(path + ": section [" + name + "]: key Driver is missing", FailureKind::Configuration);
  }
  source.dialect = dialectOf(source.driver);
  return source;
}

}  // namespace zaroruntime
