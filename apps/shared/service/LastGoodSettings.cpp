#include "service/LastGoodSettings.h"

#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "installation/AtomicFile.h"
#include "service/FailureText.h"
#include "store/SettingTable.h"

using Json = nlohmann::ordered_json;
using zaroruntime::Installation;
using zaroruntime::Setting;
using zaroruntime::SettingLayer;
using zaroruntime::Settings;

namespace {

// What services read.
constexpr const char* kSections[] = {kFilterSection, kClientSection, kServerSection};

void keep(const Settings& stored, const std::string& path) {
  Json kept = Json::object();
  for (const char* section : kSections) {
    const auto found = stored.sections.find(section);
    if (found == stored.sections.end()) {
      continue;
    }
    for (const auto& [key, setting] : found->second) {
      if (setting.layer == SettingLayer::Database) {
        kept[section][key] = setting.value;
      }
    }
  }
  AtomicFile file(path);
  file.append(kept.dump(2) + "\n");
  file.putInPlace();
}

// False when nothing was kept.
bool addKept(Settings& stored, const std::string& path) {
  std::ifstream file(path);
  if (!file) {
    return false;
  }
  for (const auto& [section, keys] : Json::parse(file).get<std::map<std::string, std::map<std::string, std::string>>>()) {
    for (const auto& [key, value] : keys) {
      stored.sections[section].emplace(key, Setting{value, SettingLayer::Database, std::nullopt});
    }
  }
  return true;
}

}  // namespace

Settings settingsOrLastGood(const Installation& installation, const std::string& path, const ServiceLog& log) {
  Settings stored = settingsOfAStart(installation, path, [&](const std::string& text) { log.warning(text); });
  if (stored.databaseFailure.empty()) {
    const std::string failure = failureOf([&] { keep(stored, path); });
    if (!failure.empty()) {
      log.warning("the settings of all hosts are not kept on disk: " + failure);
    }
  }
  return stored;
}

Settings settingsOfAStart(const Installation& installation, const std::string& path,
                          const std::function<void(const std::string&)>& tell) {
  Settings stored = zaroruntime::readSettings(installation);
  if (stored.databaseFailure.empty()) {
    return stored;
  }
  bool isAdded = false;
  const std::string failure = failureOf([&] { isAdded = addKept(stored, path); });
  if (!failure.empty()) {
    tell(path + ": " + failure);
  }
  if (isAdded) {
    tell("the settings of all hosts are those that the database had last: " + stored.databaseFailure);
  } else if (std::filesystem::exists(installation.databaseIni())) {  // else a host without a database, which is no fault
    tell("only the settings of this host count: " + stored.databaseFailure);
  }
  return stored;
}
