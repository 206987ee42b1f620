#include <optional>
#include <string>

#include "ZaroRuntime/IniFile.h"
#include "ZaroRuntime/RuntimeError.h"
#include "ZaroRuntime/SettingsStore.h"
#include "check/Checks.h"
#include "console/Text.h"
#include "store/FilterSettings.h"

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
        differences += " (" + quoted(*setting.below) + ", in the file " + quoted(setting.value) + ")";
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

}  // namespace

void checkPolicySettings(const zaroruntime::Installation& installation, Findings& findings) {
  const std::string path = installation.settingsIni();
  findings.check("policy settings", [&] {
    const IniFile ini(path, IniFile::Malformed::Refused);
    for (const char* section : {"policy_server", "policy_client"}) {
      if (!ini.hasSection(section)) {
        throw RuntimeError(path + ": section [" + section + "] is missing");
      }
    }
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
    const std::string differences = differencesIn(*settings);
    if (!differences.empty()) {
      throw RuntimeError("database " + database.name + ": holds other values than " + installation.settingsIni() +
                         ", which counts on this host: " + differences + "; zaroctl settings set KEY=VALUE writes both");
    }
    return "database " + database.name + ": holds nothing else than the file";
  });
  findings.check("mail filter settings", [&] {
    const ReadSettings read = readAsFilter(*settings);
    if (!read.isComplete()) {
      throw RuntimeError(whyUnreadable("the mail filter", read));
    }
    return std::string("usable");
  });
}
