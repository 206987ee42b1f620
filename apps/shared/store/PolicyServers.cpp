#include "store/PolicyServers.h"

#include <algorithm>
#include <climits>

#include "ZaroErrC.h"
#include "ZaroRuntime/RuntimeError.h"
#include "ZaroRuntime/SqlSession.h"
#include "console/Text.h"
#include "console/UsageError.h"
#include "store/DefaultedSettings.h"
#include "store/Transaction.h"

using zaroruntime::FailureKind;
using zaroruntime::RuntimeError;

namespace {

bool isSame(const PolicyServerInfo& one, const PolicyServerInfo& other) {
  return one.scannerId == other.scannerId && one.ipAddr == other.ipAddr && one.agentPort == other.agentPort;
}

PolicyServerInfo serverOf(const StoreConnection::Row& row) {
  return {std::stoi(row[0].value_or("0")), row[1].value_or(""), std::stoi(row[2].value_or("0"))};
}

std::vector<StoreConnection::Row> rowsWhere(StoreConnection& db, const std::string& condition) {
  return db.rows("SELECT scanner_id, ip_addr, agent_port FROM component WHERE type = 'P'" + condition + db.forUpdate(),
                 {"scanner_id", "ip_addr", "agent_port"});
}

}  // namespace

std::vector<PolicyServerInfo> listPolicyServers() {
  requireLibrary();
  std::vector<PolicyServerInfo> servers;
  const int code = answerOf("cannot list the policy servers",
                            [&] { return ZaroPolicyServerInterface::getPolicyServerInfo(servers); });
  if (code == ZaroErrC::MissingData) {
    throw RuntimeError("cannot list the policy servers (code 1002): a column of one is NULL", FailureKind::Data);
  }
  if (code != ZaroErrC::Success) {
    throw RuntimeError("cannot list the policy servers (code " + std::to_string(code) + "): " + databaseFailure(),
                       zaroruntime::lastFailureKind());
  }
  return servers;
}

std::optional<PolicyServerInfo> lockPolicyServer(StoreConnection& db, int id) {
  const auto rows = rowsWhere(db, " AND scanner_id = " + std::to_string(id));
  return rows.empty() ? std::nullopt : std::make_optional(serverOf(rows.front()));
}

void addPolicyServer(StoreConnection& db, const PolicyServerInfo& server) {
  db.run("INSERT INTO component (scanner_id, type, ip_addr, agent_port) VALUES (" + std::to_string(server.scannerId) +
         ", 'P', " + zaroruntime::sqlLiteral(server.ipAddr) + ", " + std::to_string(server.agentPort) + ")");
  const auto added = lockPolicyServer(db, server.scannerId);
  if (!added || !isSame(*added, server)) {
    throw RuntimeError(policyServerName(server.scannerId) + " was written, but does not come back so; nothing is changed",
                       FailureKind::Data);
  }
}

PolicyServerInfo registerPolicyServer(const std::string& address, int port) {
  return inTransaction([&](StoreConnection& db) {
    db.lockTable("component");
    PolicyServerInfo server{1, address, port};
    for (const auto& row : rowsWhere(db, " ORDER BY scanner_id")) {
      PolicyServerInfo other = serverOf(row);
      if (other.ipAddr == address && other.agentPort == port) {
        return other;
      }
      if (other.scannerId == INT_MAX) {
        throw RuntimeError("no number is left for another policy server", FailureKind::Refused);
      }
      server.scannerId = other.scannerId + 1;
    }
    addPolicyServer(db, server);
    return server;
  });
}

std::string policyServerName(int id) {
  return "policy server " + std::to_string(id);
}

void requireServerAddress(const std::string& text) {
  if (!judgeAddress(text).empty()) {
    throw UsageError(quoted(text) + " is not an IP address");
  }
}
