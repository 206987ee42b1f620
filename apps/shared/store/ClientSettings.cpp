#include "store/ClientSettings.h"

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
  const ReadSettings read = readAsClient(stored);
  if (!read.isComplete()) {
    throw RuntimeError(whyUnreadable("a client", read), FailureKind::Configuration);
  }
  ClientSettings settings;
  std::string hosts;
  unsigned int receive = 0, send = 0;
  Interface::Protocol protocol = Interface::HTTP;
  const unsigned int code =
      Interface::getClientSettingsFromDatabase(hosts, settings.port, settings.keepAlive, protocol, receive, send, true);
  if (code != ZaroErrC::Success) {
    throw RuntimeError(whyUnreadable("a client", readAsClient(stored)), FailureKind::Configuration);
  }
  settings.useHosts(hosts);
  settings.usesTls = protocol == Interface::HTTPS;
  settings.receiveTimeout = std::chrono::seconds(receive);
  settings.sendTimeout = std::chrono::seconds(send);
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
