#include "store/ServerSettings.h"

#include <strings.h>

#include <algorithm>
#include <string>

#include "ZaroPolicyServerInterface.h"
#include "ZaroRuntime/RuntimeError.h"
#include "console/Text.h"
#include "store/DefaultedSettings.h"

using zaroruntime::FailureKind;
using zaroruntime::RuntimeError;
using zaroruntime::Settings;
using Interface = ZaroPolicyServerInterface;

namespace {

// One for each key of the table that only the program reads; ServerSettingsTest compares them.
constexpr DefaultedSetting kServerRows[] = {
    {"address", "127.0.0.1", judgeAddress}, {"certificate", "", judgeOptionalPath},
    {"private_key", "", judgeOptionalPath}, {"client_ca", "", judgeOptionalPath},
    {"token_file", "", judgeOptionalPath},
};

constexpr DefaultedSettings kServerOnly(kServerSection, kServerRows);

std::string aboutKey(const char* key, const std::string& text) {
  return "[" + std::string(kServerSection) + "] " + key + ": " + text;
}

// What each setting allows by itself and the server cannot do with all of them; empty when it can.
std::string faultOf(const ServerSettings& settings) {
  if (settings.https && (settings.certificate.empty() || settings.privateKey.empty())) {
    return aboutKey("protocol", "HTTPS takes a certificate and a private_key");
  }
  if (!settings.https && !settings.clientCa.empty()) {
    return aboutKey("client_ca", "clients show certificates over HTTPS only");
  }
  if (!isLoopback(settings.address) && settings.clientCa.empty() && settings.tokenFile.empty()) {
    return aboutKey("address", settings.address +
                                   " is not of the loopback interface, where clients have to prove themselves: set "
                                   "token_file, or client_ca with HTTPS");
  }
  return "";
}

bool isHttps(const std::string& protocol) {
  return strcasecmp(protocol.c_str(), "https") == 0;
}

ServerSettings onlyTheProgram(const Settings& stored) {
  ServerSettings settings = {};
  settings.address = kServerOnly.text(stored, "address");
  settings.certificate = kServerOnly.text(stored, "certificate");
  settings.privateKey = kServerOnly.text(stored, "private_key");
  settings.clientCa = kServerOnly.text(stored, "client_ca");
  settings.tokenFile = kServerOnly.text(stored, "token_file");
  return settings;
}

// The value that the table has for new installations counts where a stored one is no number.
unsigned int initialNumber(const char* key) {
  const auto* found = std::find_if(std::begin(kSettingTable), std::end(kSettingTable), [&](const KnownSetting& setting) {
    return isReadBy(setting, SettingReader::Server) && std::string(key) == setting.key;
  });
  return static_cast<unsigned int>(*decimalNumber(found->initial));
}

struct NumberRow {
  const char* key;
  unsigned int ServerSettings::*number;
};

constexpr NumberRow kNumbers[] = {
    {"backlog", &ServerSettings::backlog},
    {"PolicyServerPort", &ServerSettings::port},
    {"recv_timeout_secs", &ServerSettings::receiveSeconds},
    {"send_timeout_secs", &ServerSettings::sendSeconds},
    {"threads", &ServerSettings::threads},
    {"max_threads", &ServerSettings::maxThreads},
};

void readByLibrary(const Settings& stored, ServerSettings& settings) {
  Interface::Protocol protocol = Interface::HTTP;
  unsigned int cacheMinutes = 0;
  const unsigned int code = Interface::getSettingsFromDatabase(
      settings.backlog, settings.keepAlive, settings.port, protocol, settings.receiveSeconds, settings.sendSeconds,
      settings.threads, settings.maxThreads, cacheMinutes, true);
  if (code != 0) {
    throw RuntimeError(whyUnreadable("the policy server", readAsServer(stored)), FailureKind::Configuration);
  }
  settings.https = protocol == Interface::HTTPS;
}

// By the same rules, but from what was kept of a database that does not answer, which the library does not know.
void readKept(const Settings& stored, ServerSettings& settings) {
  const auto textOf = [&](const char* key) {
    const zaroruntime::Setting* setting = stored.find(kServerSection, key);
    if (setting == nullptr) {
      throw RuntimeError(aboutKey(key, "it is missing in zaro.ini, and " + stored.databaseFailure),
                         FailureKind::Configuration);
    }
    return setting->value;
  };
  for (const NumberRow& row : kNumbers) {
    Interface::readNumber(*Interface::findServerRule(row.key), textOf(row.key), settings.*row.number);
  }
  settings.keepAlive = strcasecmp(textOf("keep-alive").c_str(), "yes") == 0;
  settings.https = isHttps(textOf("protocol"));
}

// A relative path lies in the installation.
void makeAbsolute(const zaroruntime::Installation& installation, std::string& path) {
  if (!path.empty() && path[0] != '/') {
    path = installation.path(path);
  }
}

}  // namespace

std::string whyNoServerValue(const std::string& key, const std::string& text) {
  return kServerOnly.whyNoValue(key, text);
}

void readServerOnly(const Settings& stored, ReadSettings& read) {
  kServerOnly.read(stored, read);
}

std::string whyNoServer(const Settings& stored) {
  ServerSettings settings = onlyTheProgram(stored);
  const zaroruntime::Setting* protocol = stored.find(kServerSection, "protocol");
  settings.https = protocol != nullptr && isHttps(protocol->value);
  return faultOf(settings);
}

ServerSettings serverSettings(const zaroruntime::Installation& installation, const Settings& stored) {
  ServerSettings settings = onlyTheProgram(stored);
  for (const NumberRow& row : kNumbers) {
    settings.*row.number = initialNumber(row.key);
  }
  if (stored.databaseFailure.empty()) {
    readByLibrary(stored, settings);
  } else {
    readKept(stored, settings);
  }
  settings.threads = std::min(settings.threads, settings.maxThreads);
  const std::string why = faultOf(settings);
  if (!why.empty()) {
    throw RuntimeError(why, FailureKind::Configuration);
  }
  for (std::string* path : {&settings.certificate, &settings.privateKey, &settings.clientCa, &settings.tokenFile}) {
    makeAbsolute(installation, *path);
  }
  return settings;
}
