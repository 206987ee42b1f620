// The library's connection to the database of the installation.
#pragma once

#include <memory>
#include <string>

#include "RdbmsInterface.h"

// Initialises the library for the installation that ZARO_HOME names, and connects. Throws RuntimeError naming the file,
// section or key that is wrong, or saying why the database does not answer.
std::unique_ptr<ZARO::RdbmsInterface> connectToDatabase();

// Why the library could not do its work, for a status code that says it failed in the database.
std::string databaseFailure();
