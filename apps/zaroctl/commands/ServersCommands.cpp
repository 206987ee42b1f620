// servers list, servers add ID ADDRESS PORT, servers remove ID
#include <climits>
#include <memory>
#include <string>

#include "ZaroRuntime/RuntimeError.h"
#include "commands/CommandTree.h"
#include "commands/Commands.h"
#include "console/Text.h"
#include "store/PolicyServers.h"
#include "store/Transaction.h"

using zaroruntime::FailureKind;
using zaroruntime::RuntimeError;

namespace {

constexpr int kHighestPort = 65535;

Json recordOf(const PolicyServerInfo& server) {
  return {{"id", server.scannerId}, {"address", server.ipAddr}, {"port", server.agentPort}};
}

ExitCode printServers(Output& out) {
  Json rows = Json::array();
  for (const PolicyServerInfo& server : listPolicyServers()) {
    rows.push_back(recordOf(server));
  }
  out.rows({{"id", "ID"}, {"address", "ADDRESS"}, {"port", "PORT"}}, rows);
  return ExitCode::Found;
}

ExitCode addServer(Output& out, const PolicyServerInfo& server) {
  requireServerAddress(server.ipAddr);
  inTransaction([&](StoreConnection& db) {
    if (const auto same = lockPolicyServer(db, server.scannerId)) {
      throw RuntimeError(policyServerName(server.scannerId) + " is registered already, at " + same->ipAddr + " port " +
                             std::to_string(same->agentPort) + "; remove it first",
                         FailureKind::Refused);
    }
    addPolicyServer(db, server);
  });
  out.record(recordOf(server));
  return ExitCode::Found;
}

ExitCode removeServer(Output& out, int id) {
  const auto removed = inTransaction([&](StoreConnection& db) {
    auto server = lockPolicyServer(db, id);
    db.run("DELETE FROM component WHERE type = 'P' AND scanner_id = " + std::to_string(id));
    if (lockPolicyServer(db, id)) {
      throw RuntimeError(policyServerName(id) + " was not removed, though the database said so; nothing is changed",
                         FailureKind::Data);
    }
    return server;
  });
  if (!removed) {
    diagnose("no " + policyServerName(id));
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
