// The registered policy servers: components of type "P" in the database.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "ZaroPolicyServerInterface.h"
#include "store/Database.h"

// All of them, as the library lists them. Throws RuntimeError.
std::vector<PolicyServerInfo> listPolicyServers();

// The server of a number, locked; for a change.
std::optional<PolicyServerInfo> lockPolicyServer(StoreConnection& db, int id);

// Registers one, and reads it back. Within a change, which throws RuntimeError for one that does not come back so.
void addPolicyServer(StoreConnection& db, const PolicyServerInfo& server);

// Registers a server of that address and port under the lowest number above all others, unless there is one. Answers
// the registered server. Throws RuntimeError.
PolicyServerInfo registerPolicyServer(const std::string& address, int port);

// A server as messages name it.
std::string policyServerName(int id);

// Throws UsageError for what is no IP address.
void requireServerAddress(const std::string& text);
