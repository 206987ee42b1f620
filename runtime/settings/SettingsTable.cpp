#include "settings/SettingsTable.h"

#include "ZaroRuntime/DataSource.h"
#include "ZaroRuntime/RuntimeError.h"
#include "ZaroRuntime/SqlSession.h"

namespace zaroruntime {

namespace {

constexpr int kConnectTimeOut = 5;  // seconds; readers wait for it before the file answers alone

SqlSession connect(const Installation& installation) {
  const DatabaseSettings settings = readDatabaseSettings(installation);
  return SqlSession(readDataSource(installation, settings.dataSource), settings, installation, kConnectTimeOut);
}

}  // namespace

std::vector<TableSetting> readSettingsTable(const Installation& installation) {
  std::vector<TableSetting> settings;
  for (const SqlSession::Row& row : connect(installation).rows("SELECT section, name, value FROM global_setting")) {
    if (row[0] && row[1] && row[2]) {  // NULL is no value, whatever made it
      settings.push_back({*row[0], *row[1], *row[2]});
    }
  }
  return settings;
}

void writeSettingsTable(const Installation& installation, const TableSetting& setting) {
  connect(installation)
      .run("INSERT INTO global_setting (section, name, value) VALUES (" + sqlLiteral(setting.section) + ", " +
           sqlLiteral(setting.key) + ", " + sqlLiteral(setting.value) +
           ") ON CONFLICT (section, name) DO UPDATE SET value = excluded.value");
}

}  // namespace zaroruntime
