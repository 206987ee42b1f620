// The settings of the policy server: those of section `policy_server` that the library reads, and those that only the
// program has. The latter have defaults.
#pragma once

#include <string>

#include "ZaroRuntime/Installation.h"
#include "ZaroRuntime/SettingsStore.h"
#include "store/PolicySettings.h"

// Values as the server uses them; paths are absolute, or empty for nothing.
struct ServerSettings {
  std::string address;
  unsigned int port;
  bool https;
  unsigned int backlog;
  bool keepAlive;
  unsigned int receiveSeconds;  // 0: without end
  unsigned int sendSeconds;     // 0: without end
  unsigned int threads;         // not above `maxThreads`
  unsigned int maxThreads;
  std::string certificate;
  std::string privateKey;
  std::string clientCa;
  std::string tokenFile;
};

// Why a text is no value of a key that only the program has; empty when it is one.
std::string whyNoServerValue(const std::string& key, const std::string& text);

// Appends what only the program has to what the library read.
void readServerOnly(const zaroruntime::Settings& stored, ReadSettings& read);

// Why no server would start with settings each of which is usable; empty when one would.
std::string whyNoServer(const zaroruntime::Settings& stored);

// The library reads what it knows, unless the database did not answer: then `stored` counts, which may hold what it had
// last. Throws RuntimeError naming what is wrong: a value, or that values do not go together. HTTPS takes a certificate
// and its key, `client_ca` takes HTTPS, and an address beyond the loopback interface a proof that clients give.
ServerSettings serverSettings(const zaroruntime::Installation& installation, const zaroruntime::Settings& stored);
