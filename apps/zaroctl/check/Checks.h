// The areas that `check` looks at, one file each. An area adds its findings; what it answers the later ones use.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "ZaroRuntime/DataSource.h"
#include "ZaroRuntime/Installation.h"
#include "ZaroRuntime/SqlSession.h"
#include "check/Findings.h"

// A database that answers.
struct CheckedDatabase {
  std::string name;
  zaroruntime::DataSource source;
  std::unique_ptr<zaroruntime::SqlSession> session;
};

// Who may write the installation's files, and whether its directories can be listed.
void checkFiles(const zaroruntime::Installation& installation, Findings& findings);
// config/database.ini, the key and the password. The settings, when the database can be asked with them.
std::optional<zaroruntime::DatabaseSettings> checkDatabaseSettings(const zaroruntime::Installation& installation,
                                                                   Findings& findings);
// config/zaro.ini.
void checkPolicySettings(const zaroruntime::Installation& installation, Findings& findings);
// Whether the settings' two layers hold the same, and the mail filter can use its own; for a database that answers.
void checkSettingLayers(const zaroruntime::Installation& installation, const CheckedDatabase& database,
                        Findings& findings);

// Whether a host has no database, and a mail filter that asks policy servers.
bool isFilterHost(const zaroruntime::Installation& installation);
void checkFilterHost(const zaroruntime::Installation& installation, Findings& findings);
// The display language, and the display strings of every language.
void checkDisplay(const zaroruntime::Installation& installation, Findings& findings);
// The data source and the connection to it.
std::optional<CheckedDatabase> checkConnection(const zaroruntime::Installation& installation,
                                               const zaroruntime::DatabaseSettings& settings, Findings& findings);
// Whether the schema is this program's. On another one nothing else of the database is looked at.
bool checkSchema(const zaroruntime::Installation& installation, const CheckedDatabase& database, Findings& findings);
// The policy that is stored.
void checkStoredPolicy(const CheckedDatabase& database, Findings& findings);
// The statement files; against the database unless it is null.
void checkStatements(const zaroruntime::Installation& installation, const CheckedDatabase* database, Findings& findings);
