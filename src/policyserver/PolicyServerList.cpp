// The list of policy servers.
#include "ZaroErrC.h"
#include "ZaroPolicyServerInterface.h"
#include "db/StoreStatement.h"
#include "policyserver/LeadingNumber.h"

using ZARO::settings::leadingNumber;

namespace {

struct Column {
  const char* name;
  const char* whenNull;
};

constexpr Column kScannerId = {
    "scanner_id",
    "ZaroPolicyServerInterface::getPolicyServerInfo: could not retrieve ScannerID from NULL string for statement %s"};
constexpr Column kIpAddr = {
    "ip_addr",
    "ZaroPolicyServerInterface::getPolicyServerInfo: could not retrieve IP_Addr from NULL string for statement %s"};
constexpr Column kAgentPort = {
    "agent_port",
    "ZaroPolicyServerInterface::getPolicyServerInfo: could not retrieve AgentPort from NULL string for statement %s"};

// The text of a column of the current row; null, and logged, for NULL.
const char* columnText(ZARO::RdbmsInterface& db, const Column& column, const char* statement) {
  const char* text = db.getColVal(column.name);
  if (text == nullptr) {
    PolicyLog::log(LogLevel::Error, column.whenNull, statement);
  }
  return text;
}

// Reads the current row. False when a column is NULL; those behind it are not looked at then.
bool readServer(ZARO::RdbmsInterface& db, const char* statement, PolicyServerInfo& server) {
  const char* text = columnText(db, kScannerId, statement);
  if (text == nullptr) {
    return false;
  }
  server.scannerId = leadingNumber<int>(text);
  text = columnText(db, kIpAddr, statement);
  if (text == nullptr) {
    return false;
  }
  server.ipAddr = text;
  text = columnText(db, kAgentPort, statement);
  if (text == nullptr) {
    return false;
  }
  server.agentPort = leadingNumber<int>(text);
  return true;
}

}  // namespace

int ZaroPolicyServerInterface::getPolicyServerInfo(std::vector<PolicyServerInfo>& servers) {
  ZARO::RdbmsInterface db;
  if (ZARO::RdbmsInterface::GetSqlPath() == nullptr) {
    return ZaroErrC::NoSqlDirectory;
  }
  ZARO::StoreStatement<1024> statement(db);
  return ZARO::catchThrownText(
      [&]() -> int {
        statement.run("ui_GetComponentInfo.sql", "P");
        while (db.fetchNextRow() == 0) {
          PolicyServerInfo server;
          if (!readServer(db, statement.text(), server)) {
            return ZaroErrC::MissingData;
          }
          servers.push_back(server);
        }
        return ZaroErrC::Success;
      },
      [](const char* thrown) -> int {
        PolicyLog::log(LogLevel::Error, "pszErr=%s", thrown);  // log watchers match it without the operation's name
        return ZaroErrC::ServerListFailure;
      });
}
