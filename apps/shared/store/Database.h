// The library's connection to the database of the installation.
#pragma once

#include <memory>
#include <string>

#include "RdbmsInterface.h"
#include "ZaroRuntime/SqlSession.h"

// Initialises the library for the installation that ZARO_HOME names, and connects. Throws RuntimeError naming the file,
// section or key that is wrong, or saying why the database does not answer.
std::unique_ptr<ZARO::RdbmsInterface> connectToDatabase();

// Another connection to the same database, for what the library does not do. Throws RuntimeError.
std::unique_ptr<zaroruntime::SqlSession> openSession();

// Why the library could not do its work, for a status code that says it failed in the database.
std::string databaseFailure();
