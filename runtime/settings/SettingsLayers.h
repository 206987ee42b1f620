// The two layers of the settings, read apart.
#pragma once

#include <vector>

#include "ZaroRuntime/SettingsStore.h"
#include "settings/SettingsTable.h"

namespace zaroruntime {

// Reads config/zaro.ini. Throws RuntimeError as `readSettings` does.
Settings readFileLayer(const Installation& installation);

// Adds what the settings do not have already.
void addTableLayer(const std::vector<TableSetting>& table, Settings& settings);

}  // namespace zaroruntime
