#include "ZaroRuntime/SettingsStore.h"

#include "PolicyLog.h"
#include "ZaroRuntime/IniFile.h"
#include "ZaroRuntime/RuntimeError.h"
#include "common/FileLock.h"
#include "common/FileText.h"
#include "settings/SettingsLayers.h"
#include "settings/SettingsTable.h"

namespace zaroruntime {

namespace {

// Seconds; above what one writer can need for the database.
constexpr int kLockTimeOut = 30;
constexpr int kSettingsLockTimeOut = 60;  // and above what somebody can wait for that one

IniFile readFile(const std::string& path) {
  // A line that is skipped would be a setting that somebody believes to have made.
  return IniFile(path, IniFile::Malformed::Refused);
}

// Before a lock is made: in the wrong hands it would keep the owner out.
void requireOwner(const std::string& path) {
  if (!canKeepOwnerOf(path)) {
    readFile(path);  // whatever else is wrong is told first
    requireWritable(path);
    throw RuntimeError(path + ": cannot keep its owner and group: only they and root may write it");
  }
}

void replaceBy(FileReplacement& replacement, const std::string& path) {
  try {
    replacement.commit();
  } catch (const RuntimeError& failure) {
    throw RuntimeError(std::string(failure.what()) + " (the database has the new value already; that of the file counts)");
  }
  try {
    syncDirectoryOf(path);
  } catch (const RuntimeError& failure) {
    PolicyLog::log(LogLevel::Warning, "the new settings are in place, but may be lost in a power failure: %s",
                   failure.what());
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

Settings readFileLayer(const Installation& installation) {
  const IniFile file = readFile(installation.settingsIni());
  Settings settings;
  for (const std::string& section : file.sections()) {
    for (const auto& [key, value] : file.items(section)) {
      settings.sections[section].emplace(key, Setting{value, SettingLayer::File});
    }
  }
  return settings;
}

void addTableLayer(const std::vector<TableSetting>& table, Settings& settings) {
  for (const TableSetting& row : table) {
    settings.sections[row.section].emplace(row.key, Setting{row.value, SettingLayer::Database});
  }
}

Settings readSettings(const Installation& installation) {
  Settings settings = readFileLayer(installation);
  try {
    addTableLayer(readSettingsTable(installation), settings);
  } catch (const RuntimeError& failure) {
    settings.databaseFailure = failure.what();
  }
  return settings;
}

void writeSetting(const Installation& installation, const std::string& section, const std::string& key,
                  const std::string& value) {
  try {
    const std::string path = realPathOf(installation.settingsIni());
    requireOwner(path);
    const FileLock lock(path, ".lock", kLockTimeOut);
    // Whatever can be wrong with the file is found before the database is changed.
    IniFile file = readFile(path);
    file.set(section, key, value);
    requireWritable(path);
    FileReplacement replacement = sameFileWith(path, file.text());
    writeSettingsTable(installation, {section, key, value});
    replaceBy(replacement, path);
  } catch (const RuntimeError& failure) {
    throw RuntimeError("setting [" + section + "] " + key + " is not written: " + failure.what());
  }
}

struct SettingsLock::Impl {
  explicit Impl(const std::string& path) : lock(path, ".set.lock", kSettingsLockTimeOut) {}

  FileLock lock;
};

SettingsLock::SettingsLock(const Installation& installation) {
  const std::string path = realPathOf(installation.settingsIni());
  requireOwner(path);
  m_impl = std::make_unique<Impl>(path);
}

SettingsLock::~SettingsLock() = default;

}  // namespace zaroruntime
