// The database's layer of the settings.
#pragma once

#include <string>
#include <vector>

#include "ZaroRuntime/Installation.h"
#include "ZaroRuntime/SettingsStore.h"

namespace zaroruntime {

using TableSetting = SettingText;

// Both connect as config/database.ini and config/odbc.ini say, and throw RuntimeError naming the database's failure.
std::vector<TableSetting> readSettingsTable(const Installation& installation);
// Every row or none; none where the schema is of another version.
void writeSettingsTable(const Installation& installation, const std::vector<TableSetting>& settings);

}  // namespace zaroruntime
