// The settings of a policy server's client: what the library reads of sections `policy_server` and `policy_client`, and
// how a client proves itself, which are keys of this program's own.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "ZaroRuntime/Installation.h"
#include "ZaroRuntime/SettingsStore.h"
#include "store/PolicySettings.h"

struct PolicyServerAddress {
  std::string host;  // a name or an address
  unsigned int port = 0;

  // As a URL and a log line have it.
  std::string text() const;
  bool operator==(const PolicyServerAddress& other) const { return host == other.host && port == other.port; }
};

// Values as a client uses them; paths are absolute, and empty where nothing is set.
struct ClientSettings {
  unsigned int port = 0;
  std::vector<PolicyServerAddress> servers;  // none: those that are registered in the database
  bool usesTls = false;
  bool keepAlive = true;
  std::chrono::seconds receiveTimeout{0};  // 0: the client's own
  std::chrono::seconds sendTimeout{0};
  std::string ca;
  std::string certificate;
  std::string privateKey;
  std::string tokenFile;

  // Takes the servers of a text of hosts. Throws RuntimeError for one that is none.
  void useHosts(const std::string& hosts);
};

// Why a text names no hosts: names or addresses with commas between, or nothing. Empty when it does.
std::string whyNoHosts(const std::string& text);
// Why a text is no value of a key of this program's own in section `policy_client`; empty when it is one.
std::string whyNoClientValue(const std::string& key, const std::string& text);

// Appends what only programs have to what the library read, and judges the hosts among the latter.
void readClientOnly(const zaroruntime::Settings& stored, ReadSettings& read);

// While the database does not answer, what `stored` has counts, which may be what was kept of it. Throws RuntimeError
// saying which setting is missing or wrong.
ClientSettings clientSettings(const zaroruntime::Installation& installation, const zaroruntime::Settings& stored);

// The servers that the database has registered, as far as a client can ask them. Throws RuntimeError.
std::vector<PolicyServerAddress> registeredServers();
