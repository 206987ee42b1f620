// servers list, servers add ID ADDRESS PORT, servers remove ID
#include <arpa/inet.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "CommandTree.h"
#include "Commands.h"
#include "Database.h"
#include "Text.h"
#include "UsageError.h"
#include "ZaroErrC.h"
#include "ZaroPolicyServerInterface.h"
#include "ZaroRuntime/RuntimeError.h"
#include "ZaroRuntime/SqlSession.h"

using zaroruntime::RuntimeError;

namespace {

constexpr int kHighestId = 2147483647;

std::vector<PolicyServerInfo> listServers() {
  connectToDatabase();
  std::vector<PolicyServerInfo> servers;
  const int code = ZaroPolicyServerInterface::getPolicyServerInfo(servers);
  if (code == ZaroErrC::MissingData) {
    throw RuntimeError("cannot list the policy servers (code 1002): a column of one is NULL");
  }
  if (code != ZaroErrC::Success) {
    throw RuntimeError("cannot list the policy servers (code " + std::to_string(code) + "): " + databaseFailure());
  }
  return servers;
}

Json recordOf(const PolicyServerInfo& server) {
  return {{"id", server.scannerId}, {"address", server.ipAddr}, {"port", server.agentPort}};
}

const PolicyServerInfo* findServer(const std::vector<PolicyServerInfo>& servers, int id) {
  const auto found = std::find_if(servers.begin(), servers.end(),
                                  [&](const PolicyServerInfo& server) { return server.scannerId == id; });
  return found != servers.end() ? &*found : nullptr;
}

bool isSame(const PolicyServerInfo& one, const PolicyServerInfo& other) {
  return one.scannerId == other.scannerId && one.ipAddr == other.ipAddr && one.agentPort == other.agentPort;
}

void refuseWhatIsNoAddress(const std::string& text) {
  in6_addr address = {};
  if (inet_pton(AF_INET, text.c_str(), &address) != 1 && inet_pton(AF_INET6, text.c_str(), &address) != 1) {
    throw UsageError(quoted(text) + " is not an IP address");
  }
}

std::string nameOf(int id) {
  return "policy server " + std::to_string(id);
}

ExitCode printServers(Output& out) {
  Json rows = Json::array();
  for (const PolicyServerInfo& server : listServers()) {
    rows.push_back(recordOf(server));
  }
  out.rows({{"id", "ID"}, {"address", "ADDRESS"}, {"port", "PORT"}}, rows);
  return ExitCode::Found;
}

ExitCode addServer(Output& out, const PolicyServerInfo& server) {
  refuseWhatIsNoAddress(server.ipAddr);
  const std::vector<PolicyServerInfo> before = listServers();
  if (const PolicyServerInfo* same = findServer(before, server.scannerId)) {
    throw RuntimeError(nameOf(server.scannerId) + " is registered already, at " + same->ipAddr + " port " +
                       std::to_string(same->agentPort) + "; remove it first");
  }
  openSession()->run("INSERT INTO component (scanner_id, type, ip_addr, agent_port) VALUES (" +
                     std::to_string(server.scannerId) + ", 'P', " + zaroruntime::sqlLiteral(server.ipAddr) + ", " +
                     std::to_string(server.agentPort) + ")");
  const std::vector<PolicyServerInfo> after = listServers();
  const PolicyServerInfo* added = findServer(after, server.scannerId);
  if (added == nullptr || !isSame(*added, server)) {
    throw RuntimeError(nameOf(server.scannerId) + " was written, but does not come back from the list so");
  }
  out.record(recordOf(*added));
  return ExitCode::Found;
}

ExitCode removeServer(Output& out, int id) {
  const std::vector<PolicyServerInfo> before = listServers();
  const PolicyServerInfo* removed = findServer(before, id);
  if (removed == nullptr) {
    diagnose("no " + nameOf(id));
    return ExitCode::NotFound;
  }
  openSession()->run("DELETE FROM component WHERE type = 'P' AND scanner_id = " + std::to_string(id));
  if (findServer(listServers(), id) != nullptr) {
    throw RuntimeError(nameOf(id) + " was removed, but is still in the list");
  }
  out.record(recordOf(*removed));
  return ExitCode::Found;
}

CLI::Option* addId(CLI::App& command, int& id) {
  return command.add_option("ID", id, "The server's number")
      ->required()
      ->check(CLI::Range(1, kHighestId).description(""))
      ->type_name("");
}

}  // namespace

void addServersList(CommandTree& tree) {
  tree.add("servers list", "List the registered policy servers",
           {"zaroctl servers list", "zaroctl servers list --json"}, printServers);
}

void addServersAdd(CommandTree& tree) {
  const auto server = std::make_shared<PolicyServerInfo>();
  CLI::App* command = tree.add("servers add", "Register a policy server",
                               {"zaroctl servers add 4 192.0.2.13 15505", "zaroctl servers add 5 2001:db8::13 15505"},
                               [server](Output& out) { return addServer(out, *server); });
  addId(*command, server->scannerId);
  command->add_option("ADDRESS", server->ipAddr, "Its IP address")->required()->type_name("");
  command->add_option("PORT", server->agentPort, "The port of its agent")
      ->required()
      ->check(CLI::Range(1, 65535).description(""))
      ->type_name("");
}

void addServersRemove(CommandTree& tree) {
  const auto id = std::make_shared<int>(0);
  CLI::App* command = tree.add("servers remove", "Remove a policy server from the list", {"zaroctl servers remove 4"},
                               [id](Output& out) { return removeServer(out, *id); });
  addId(*command, *id);
}
