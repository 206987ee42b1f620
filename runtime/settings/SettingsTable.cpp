#include "settings/SettingsTable.h"

#include <memory>

#include "ZaroRuntime/DataSource.h"
#include "ZaroRuntime/RuntimeError.h"
#include "ZaroRuntime/SchemaVersion.h"
#include "ZaroRuntime/SqlSession.h"

namespace zaroruntime {

namespace {

// Seconds; readers wait for both before the file answers alone. Together less than a writer waits for another.
constexpr int kConnectTimeOut = 5;
constexpr int kStatementTimeOut = 10;

std::unique_ptr<SqlSession> connect(const Installation& installation) {
  const DatabaseSettings settings = readDatabaseSettings(installation);
  auto session = std::make_unique<SqlSession>(readDataSource(installation, settings.dataSource), settings, installation,
                                              kConnectTimeOut);
  session->setStatementTimeOut(kStatementTimeOut);
  return session;
}

}  // namespace

std::vector<TableSetting> readSettingsTable(const Installation& installation) {
  std::vector<TableSetting> settings;
  for (const SqlSession::Row& row : connect(installation)->rows("SELECT section, name, value FROM global_setting")) {
    if (row[0] && row[1] && row[2]) {  // NULL is no value, whatever made it
      settings.push_back({*row[0], *row[1], *row[2]});
    }
  }
  return settings;
}

void writeSettingsTable(const Installation& installation, const std::vector<TableSetting>& settings) {
  std::vector<std::string> statements;
  statements.reserve(settings.size());
  for (const TableSetting& setting : settings) {
    statements.push_back("INSERT INTO global_setting (section, name, value) VALUES (" + sqlLiteral(setting.section) +
                         ", " + sqlLiteral(setting.key) + ", " + sqlLiteral(setting.value) +
                         ") ON CONFLICT (section, name) DO UPDATE SET value = excluded.value");
  }
  const auto session = connect(installation);
  session->runTogether(statements, [&] { requireSchemaVersion(*session); });
}

}  // namespace zaroruntime
