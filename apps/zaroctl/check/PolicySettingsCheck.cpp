#include <filesystem>
#include <optional>
#include <string>

#include "ZaroRuntime/IniFile.h"
#include "ZaroRuntime/RuntimeError.h"
#include "ZaroRuntime/SettingsStore.h"
#include "check/Checks.h"
#include "console/Text.h"
#include "installation/PrivateFile.h"
#include "store/ClientSettings.h"
#include "store/FilterSettings.h"
#include "store/PolicySettings.h"
#include "store/ServerSettings.h"

namespace fs = std::filesystem;
using zaroruntime::IniFile;
using zaroruntime::RuntimeError;
using zaroruntime::Settings;

namespace {

std::string differencesIn(const Settings& settings) {
  std::string differences;
  for (const auto& [section, items] : settings.sections) {
    for (const auto& [key, setting] : items) {
      if (setting.below) {
        differences.append(differences.empty() ? "[" : ", [").append(section).append("] ").append(key);
        differences += " (" + quoted(setting.value) + ", in the database " + quoted(*setting.below) + ")";
      }
    }
  }
  return differences;
}

// The settings of a file that can be used: what is wrong with another has been told.
std::optional<Settings> readableSettings(const zaroruntime::Installation& installation) {
  try {
    return zaroruntime::readSettings(installation);
  } catch (const RuntimeError&) {
    return std::nullopt;
  }
}

void requireReadable(const char* reader, const ReadSettings& read) {
  if (!read.isComplete()) {
    throw RuntimeError(whyUnreadable(reader, read) + "; zaroctl settings set KEY=VALUE sets it for all hosts");
  }
}

// Where packages have the programs: commands beside this one, services in sbin.
bool hasServerProgram() {
  const fs::path own = fs::read_symlink("/proc/self/exe").parent_path();
  std::error_code absent;
  return fs::exists(own / "zaropolicyd", absent) || fs::exists(own.parent_path() / "sbin/zaropolicyd", absent);
}

// Of settings that can be read. Nothing is told of those with which a server starts. A host without the server shares
// what the server's host completes with values of its own.
void checkServerSettings(const Settings& settings, Findings& findings) {
  if (!settings.databaseFailure.empty() || !readAsServer(settings).isComplete()) {
    return;
  }
  const std::string why = whyNoServer(settings);
  if (why.empty()) {
    return;
  }
  const std::string finding = "a policy server does not start with them: " + why;
  if (hasServerProgram()) {
    findings.wrong("policy server settings", finding);
  } else {
    findings.ok("policy server settings", "not used, since this host has no zaropolicyd; " + finding);
  }
}

}  // namespace

void checkPolicySettings(const zaroruntime::Installation& installation, Findings& findings) {
  const std::string path = installation.settingsIni();
  findings.check("policy settings", [&] {
    static_cast<void>(IniFile(path, IniFile::Malformed::Refused));
    return path + ": readable";
  });
}

void checkSettingLayers(const zaroruntime::Installation& installation, const CheckedDatabase& database,
                        Findings& findings) {
  const std::optional<Settings> settings = readableSettings(installation);
  if (!settings) {
    return;
  }
  findings.check("policy settings", [&] {
    if (!settings->databaseFailure.empty()) {
      throw RuntimeError("database " + database.name + ": " + settings->databaseFailure);
    }
    requireReadable("a policy server", readAsServer(*settings));
    requireReadable("a client", readAsClient(*settings));
    const std::string differences = differencesIn(*settings);
    return "database " + database.name + ": " +
           (differences.empty()
                ? "this host has no values of its own"
                : "this host has values of its own in " + installation.settingsIni() + ": " + differences);
  });
  checkServerSettings(*settings, findings);
  findings.check("mail filter settings", [&] {
    requireReadable("the mail filter", readAsFilter(*settings));
    static_cast<void>(filterSettings(installation, *settings));
    return std::string("usable");
  });
}

bool isFilterHost(const zaroruntime::Installation& installation) {
  if (fs::exists(installation.databaseIni())) {
    return false;
  }
  const std::optional<Settings> settings = readableSettings(installation);
  const zaroruntime::Setting* source = settings ? settings->find(kFilterSection, "source") : nullptr;
  return source != nullptr && source->value == "policy_server";
}

void checkFilterHost(const zaroruntime::Installation& installation, Findings& findings) {
  const std::optional<Settings> settings = readableSettings(installation);
  if (!settings) {
    return;
  }
  findings.check("policy client settings", [&] {
    const ClientSettings client = clientSettings(installation, *settings);
    for (const std::string& file : {client.tokenFile, client.privateKey}) {
      if (!file.empty()) {
        readPrivateFile(file);
      }
    }
    return std::string("usable; zarofilterd --check asks the policy servers");
  });
  findings.check("mail filter settings", [&] {
    const ReadSettings read = readAsFilter(*settings);
    if (!read.isComplete()) {
      throw RuntimeError(whyUnreadable("the mail filter", read));
    }
    static_cast<void>(filterSettings(installation, *settings));
    return std::string("usable");
  });
}
