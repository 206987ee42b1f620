#include "store/ClientSettings.h"

#include <strings.h>
#include <sys/socket.h>

#include <algorithm>
#include <sstream>

#include "ZaroErrC.h"
#include "ZaroPolicyServerInterface.h"
#include "ZaroRuntime/RuntimeError.h"
#include "console/Text.h"
#include "store/DefaultedSettings.h"
#include "store/PolicyServers.h"

using zaroruntime::FailureKind;
using zaroruntime::Installation;
using zaroruntime::RuntimeError;
using zaroruntime::Setting;
using zaroruntime::Settings;
using Interface = ZaroPolicyServerInterface;

namespace {

constexpr const char* kHost = "host";

// One for each such key of the section in kSettingTable; ClientSettingsTest compares them.
constexpr DefaultedSetting kClientRows[] = {
    {"ca", "", judgeOptionalPath},
    {"certificate", "", judgeOptionalPath},
    {"private_key", "", judgeOptionalPath},
    {"token_file", "", judgeOptionalPath},
};
constexpr DefaultedSettings kClientOnly(kClientSection, kClientRows);

// Of letters, digits, dots, hyphens and underscores, so that a URL with it names no other host.
bool isHost(const std::string& text) {
  constexpr std::size_t kLongest = 253;
  constexpr const char* kLetters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789.-_";
  const bool isName = !text.empty() && text.size() <= kLongest && text.find_first_not_of(kLetters) == std::string::npos;
  return isName || isNumericAddress(text, AF_INET6);
}

// What stands between commas.
std::vector<std::string> hostsIn(const std::string& text) {
  std::vector<std::string> hosts;
  std::istringstream rest(text);
  for (std::string host; std::getline(rest, host, ',');) {
    hosts.push_back(host);
  }
  if (!text.empty() && text.back() == ',') {
    hosts.emplace_back();
  }
  return hosts;
}

// What the library reads, or would.
struct LibrarySettings {
  std::string hosts;
  unsigned int port = 0;
  bool keepAlive = false;
  bool usesTls = false;
  unsigned int receiveSeconds = 0;
  unsigned int sendSeconds = 0;
};

void requireComplete(const ReadSettings& read) {
  if (!read.isComplete()) {
    throw RuntimeError(whyUnreadable("a client", read), FailureKind::Configuration);
  }
}

LibrarySettings readByLibrary(const Settings& stored) {
  requireComplete(readAsClient(stored));
  LibrarySettings settings;
  Interface::Protocol protocol = Interface::HTTP;
  const unsigned int code = Interface::getClientSettingsFromDatabase(
      settings.hosts, settings.port, settings.keepAlive, protocol, settings.receiveSeconds, settings.sendSeconds, true);
  if (code != ZaroErrC::Success) {
    throw RuntimeError(whyUnreadable("a client", readAsClient(stored)), FailureKind::Configuration);
  }
  settings.usesTls = protocol == Interface::HTTPS;
  return settings;
}

// What the section of clients lacks is the server's.
std::string keptText(const Settings& stored, const char* section, const char* key) {
  const Setting* setting = stored.find(section, key);
  if (setting == nullptr) {
    setting = stored.find(kServerSection, key);
  }
  if (setting == nullptr) {
    throw RuntimeError("[" + std::string(section) + "] " + key + " is missing in zaro.ini, and " + stored.databaseFailure,
                       FailureKind::Configuration);
  }
  return setting->value;
}

// By the same rules, but from what was kept of a database that does not answer, which the library does not know.
LibrarySettings readKept(const Settings& stored) {
  LibrarySettings settings;
  const auto number = [&](const char* section, const char* key, unsigned int& value) {
    Interface::readNumber(*Interface::findClientRule(key), keptText(stored, section, key), value);
  };
  const auto isWord = [&](const char* key, const char* word) {
    return strcasecmp(keptText(stored, kServerSection, key).c_str(), word) == 0;
  };
  number(kServerSection, "PolicyServerPort", settings.port);
  settings.keepAlive = isWord("keep-alive", "yes");
  settings.usesTls = isWord("protocol", "https");
  settings.hosts = keptText(stored, kClientSection, kHost);
  number(kClientSection, "recv_timeout_secs", settings.receiveSeconds);
  number(kClientSection, "send_timeout_secs", settings.sendSeconds);
  ReadSettings read{{{kClientSection, kHost, nullptr, settings.hosts, ""}}, ZaroErrC::Success, ""};
  readClientOnly(stored, read);
  requireComplete(read);
  return settings;
}

}  // namespace

std::string PolicyServerAddress::text() const {
  return (isNumericAddress(host, AF_INET6) ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

std::string whyNoHosts(const std::string& text) {
  const std::vector<std::string> hosts = hostsIn(text);
  return std::all_of(hosts.begin(), hosts.end(), isHost) ? "" : "not the name or address of a host";
}

void ClientSettings::useHosts(const std::string& hosts) {
  const std::string wrong = whyNoHosts(hosts);
  if (!wrong.empty()) {
    throw RuntimeError(quoted(hosts) + " is " + wrong, FailureKind::Data);
  }
  servers.clear();
  for (const std::string& host : hostsIn(hosts)) {
    servers.push_back({host, port});
  }
}

std::string whyNoClientValue(const std::string& key, const std::string& text) {
  return kClientOnly.whyNoValue(key, text);
}

void readClientOnly(const Settings& stored, ReadSettings& read) {
  for (ReadSetting& setting : read.settings) {
    if (setting.key == kHost && setting.value.is_string()) {
      setting.note = whyNoHosts(setting.value);
      if (!setting.note.empty()) {
        read.unusable = kClientOnly.unusable(kHost, setting.value, setting.note);
      }
    }
  }
  kClientOnly.read(stored, read);
}

ClientSettings clientSettings(const Installation& installation, const Settings& stored) {
  const LibrarySettings library = stored.databaseFailure.empty() ? readByLibrary(stored) : readKept(stored);
  ClientSettings settings;
  settings.port = library.port;
  settings.useHosts(library.hosts);
  settings.usesTls = library.usesTls;
  settings.keepAlive = library.keepAlive;
  settings.receiveTimeout = std::chrono::seconds(library.receiveSeconds);
  settings.sendTimeout = std::chrono::seconds(library.sendSeconds);
  const auto file = [&](const char* key) {
    const std::string text = kClientOnly.text(stored, key);
    return text.empty() || text[0] == '/' ? text : installation.path(text);
  };
  settings.ca = file("ca");
  settings.certificate = file("certificate");
  settings.privateKey = file("private_key");
  settings.tokenFile = file("token_file");
  return settings;
}

std::vector<PolicyServerAddress> registeredServers() {
  constexpr int kHighestPort = 65535;
  std::vector<PolicyServerAddress> addresses;
  for (const PolicyServerInfo& server : listPolicyServers()) {
    if (isHost(server.ipAddr) && server.agentPort > 0 && server.agentPort <= kHighestPort) {
      addresses.push_back({server.ipAddr, static_cast<unsigned int>(server.agentPort)});
    }
  }
  return addresses;
}
