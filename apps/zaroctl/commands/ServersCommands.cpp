// servers list, servers add ID ADDRESS PORT, servers remove ID
#include <arpa/inet.h>

#include <climits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ZaroErrC.h"
#include "ZaroPolicyServerInterface.h"
#include "ZaroRuntime/RuntimeError.h"
#include "ZaroRuntime/SqlSession.h"
#include "commands/CommandTree.h"
#include "commands/Commands.h"
#include "console/Text.h"
#include "console/UsageError.h"
#include "store/Transaction.h"

using zaroruntime::FailureKind;
using zaroruntime::RuntimeError;

namespace {

constexpr int kHighestPort = 65535;

std::vector<PolicyServerInfo> listServers() {
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

Json recordOf(const PolicyServerInfo& server) {
  return {{"id", server.scannerId}, {"address", server.ipAddr}, {"port", server.agentPort}};
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

// The server of a number, locked.
std::optional<PolicyServerInfo> lockServer(StoreConnection& db, int id) {
  const auto rows = db.rows("SELECT scanner_id, ip_addr, agent_port FROM component WHERE type = 'P' AND scanner_id = " +
                                std::to_string(id) + db.forUpdate(),
                            {"scanner_id", "ip_addr", "agent_port"});
  if (rows.empty()) {
    return std::nullopt;
  }
  const auto& row = rows.front();
  return PolicyServerInfo{std::stoi(row[0].value_or("0")), row[1].value_or(""), std::stoi(row[2].value_or("0"))};
}

ExitCode addServer(Output& out, const PolicyServerInfo& server) {
  refuseWhatIsNoAddress(server.ipAddr);
  inTransaction([&](StoreConnection& db) {
    if (const auto same = lockServer(db, server.scannerId)) {
      throw RuntimeError(nameOf(server.scannerId) + " is registered already, at " + same->ipAddr + " port " +
                             std::to_string(same->agentPort) + "; remove it first",
                         FailureKind::Refused);
    }
    db.run("INSERT INTO component (scanner_id, type, ip_addr, agent_port) VALUES (" + std::to_string(server.scannerId) +
           ", 'P', " + zaroruntime::sqlLiteral(server.ipAddr) + ", " + std::to_string(server.agentPort) + ")");
    const auto added = lockServer(db, server.scannerId);
    if (!added || !isSame(*added, server)) {
      throw RuntimeError(nameOf(server.scannerId) + " was written, but does not come back so; nothing is changed",
                         FailureKind::Data);
    }
  });
  out.record(recordOf(server));
  return ExitCode::Found;
}

ExitCode removeServer(Output& out, int id) {
  const auto removed = inTransaction([&](StoreConnection& db) {
    auto server = lockServer(db, id);
    db.run("DELETE FROM component WHERE type = 'P' AND scanner_id = " + std::to_string(id));
    if (lockServer(db, id)) {
      throw RuntimeError(nameOf(id) + " was not removed, though the database said so; nothing is changed",
                         FailureKind::Data);
    }
    return server;
  });
  if (!removed) {
    diagnose("no " + nameOf(id));
    return ExitCode::NotFound;
  }
  out.record(recordOf(*removed));
  return ExitCode::Found;
}

// As texts: the parser would read 010 as eight.
CLI::Option* addNumber(CLI::App& command, const char* name, std::string& text, const char* help, int highest) {
  const auto check = [highest](const std::string& given) {
    const auto number = decimalNumber(given);
    const bool right = number && *number >= 1 && *number <= highest;
    return right ? "" : quoted(given) + " is not a number from 1 to " + std::to_string(highest);
  };
  return command.add_option(name, text, help)->required()->check(CLI::Validator(check, ""))->type_name("");
}

int numberOf(const std::string& text) {
  return static_cast<int>(decimalNumber(text).value_or(0));
}

struct NewServer {
  std::string id;
  std::string address;
  std::string port;
};

}  // namespace

void addServersList(CommandTree& tree) {
  tree.add("servers list", "List the registered policy servers",
           {"zaroctl servers list", "zaroctl servers list --json"}, printServers);
}

void addServersAdd(CommandTree& tree) {
  const auto server = std::make_shared<NewServer>();
  CLI::App* command = tree.add("servers add", "Register a policy server",
                               {"zaroctl servers add 4 192.0.2.13 15505", "zaroctl servers add 5 2001:db8::13 15505"},
                               [server](Output& out) {
                                 return addServer(out, {numberOf(server->id), server->address, numberOf(server->port)});
                               });
  addNumber(*command, "ID", server->id, "The server's number", INT_MAX);
  command->add_option("ADDRESS", server->address, "Its IP address")->required()->type_name("");
  addNumber(*command, "PORT", server->port, "The port of its agent", kHighestPort);
}

void addServersRemove(CommandTree& tree) {
  const auto id = std::make_shared<std::string>();
  CLI::App* command = tree.add("servers remove", "Remove a policy server from the list", {"zaroctl servers remove 4"},
                               [id](Output& out) { return removeServer(out, numberOf(*id)); });
  addNumber(*command, "ID", *id, "The server's number", INT_MAX);
}
