// The text that the driver manager connects with.
#pragma once

#include <string>

#include "ZaroRuntime/DataSource.h"
#include "ZaroRuntime/Installation.h"

namespace zaroruntime {

// A string without a data source name: driver, file or server, credentials, and the options that make the databases
// behave alike. What the data source says goes over our defaults. Throws RuntimeError for what cannot be expressed or
// would not work.
std::string connectionString(const DataSource& source, const DatabaseSettings& settings,
                             const Installation& installation);

// Statements that the driver executes after connecting because the data source says so, ended with a semicolon; empty
// when it does not.
std::string sessionSettings(const DataSource& source);

}  // namespace zaroruntime
