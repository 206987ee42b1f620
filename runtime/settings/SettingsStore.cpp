#include "ZaroRuntime/SettingsStore.h"

#include "ZaroRuntime/IniFile.h"
#include "ZaroRuntime/RuntimeError.h"
#include "common/FileLock.h"
#include "common/FileText.h"
#include "settings/SettingsTable.h"

namespace zaroruntime {

namespace {

// Seconds; above what one writer can need for the database.
constexpr int kLockTimeOut = 30;
constexpr int kSettingsLockTimeOut = 60;  // and above what somebody can wait for that one

IniFile readFile(const Installation& installation) {
  // A line that is skipped would be a setting that somebody believes to have made.
  return IniFile(installation.settingsIni(), IniFile::Malformed::Refused);
}

void writeFile(const std::string& path, const IniFile& file) {
  try {
    rewriteFile(path, file.text());
  } catch (const RuntimeError& failure) {
    throw RuntimeError(std::string(failure.what()) + " (the database has the new value already; that of the file counts)");
  }
}

void addTable(const Installation& installation, Settings& settings) {
  try {
    for (const TableSetting& row : readSettingsTable(installation)) {
      settings.sections[row.section].emplace(row.key, Setting{row.value, SettingLayer::Database});
    }
  } catch (const RuntimeError& failure) {
    settings.databaseFailure = failure.what();
  }
}

}  // namespace

const Setting* Settings::find(const std::string& section, const std::string& key) const {
  const auto inSection = sections.find(section);
  if (inSection == sections.end()) {
    return nullptr;
  }
  const auto found = inSection->second.find(key);
  return found != inSection->second.end() ? &found->second : nullptr;
}

Settings readSettings(const Installation& installation) {
  const IniFile file = readFile(installation);
  Settings settings;
  for (const std::string& section : file.sections()) {
    for (const auto& [key, value] : file.items(section)) {
      settings.sections[section].emplace(key, Setting{value, SettingLayer::File});
    }
  }
  addTable(installation, settings);
  return settings;
}

void writeSetting(const Installation& installation, const std::string& section, const std::string& key,
                  const std::string& value) {
  const std::string path = installation.settingsIni();
  try {
    const FileLock lock(path, ".lock", kLockTimeOut);
    // Whatever can be wrong with the file is found before the database is changed.
    IniFile file = readFile(installation);
    file.set(section, key, value);
    requireWritable(path);
    writeSettingsTable(installation, {section, key, value});
    writeFile(path, file);
  } catch (const RuntimeError& failure) {
    throw RuntimeError("setting [" + section + "] " + key + " is not written: " + failure.what());
  }
}

struct SettingsLock::Impl {
  FileLock lock;
};

SettingsLock::SettingsLock(const Installation& installation)
    : m_impl(new Impl{FileLock(installation.settingsIni(), ".set.lock", kSettingsLockTimeOut)}) {}

SettingsLock::~SettingsLock() = default;

}  // namespace zaroruntime
