// The data sources of an installation: sections of its config/odbc.ini. No system-wide ODBC configuration is used.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "ZaroRuntime/Installation.h"

namespace zaroruntime {

enum class Dialect { SQLite, PostgreSQL, Other };

struct DataSource {
  std::string name;
  std::string driver;  // as the driver manager takes it, such as libsqlite3odbc.so
  Dialect dialect;     // told from the driver's name
  std::vector<std::pair<std::string, std::string>> options;  // every other key, in the order of the file
};

// Throws RuntimeError naming the file and the section or key that is wrong.
DataSource readDataSource(const Installation& installation, const std::string& name);

// "sqlite", "postgresql" or "other": the name of a dialect, and of its directory of statement files.
const char* dialectName(Dialect dialect);

}  // namespace zaroruntime
