#include "ZaroRuntime/SettingsStore.h"

#include <utility>
#include <vector>

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
constexpr int kSettingsLockTimeOut = 60;  // and above the longest wait for that one

IniFile readFile(const std::string& path) {
  // A line that is skipped would be a setting that the administrator believes to have made.
  return IniFile(path, IniFile::Malformed::Refused);
}

// Before a lock is made: in the wrong hands it would keep the owner out.
void requireOwner(const std::string& path) {
  if (!canKeepOwnerOf(path)) {
    readFile(path);  // whatever else is wrong is told first
    requireWritable(path);
    throw RuntimeError(path + ": cannot keep its owner and group: only they and root may write it", FailureKind::Refused);
  }
}

// Whatever can be wrong with the file is found before anything is changed.
FileReplacement fileWith(const std::string& path, const std::vector<SettingText>& settings) {
  IniFile file = readFile(path);
  for (const SettingText& setting : settings) {
    file.set(setting.section, setting.key, setting.value);
  }
  requireWritable(path);
  return sameFileWith(path, file.text());
}

void replaceBy(FileReplacement& replacement, const std::string& path) {
  replacement.commit();
  try {
    syncDirectoryOf(path);
  } catch (const RuntimeError& failure) {
    PolicyLog::log(LogLevel::Warning, "the new settings are in place, but may be lost in a power failure: %s",
                   failure.what());
  }
}

void replaceBelowTable(FileReplacement& replacement, const std::string& path) {
  try {
    replaceBy(replacement, path);
  } catch (const RuntimeError& failure) {
    throw RuntimeError(std::string(failure.what()) + " (the database has the new value already; that of the file counts)",
                       failure.kind());
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
      settings.sections[section].emplace(key, Setting{value, SettingLayer::File, std::nullopt});
    }
  }
  return settings;
}

void addTableLayer(const std::vector<TableSetting>& table, Settings& settings) {
  for (const TableSetting& row : table) {
    const auto [setting, isNew] =
        settings.sections[row.section].emplace(row.key, Setting{row.value, SettingLayer::Database, std::nullopt});
    if (!isNew && setting->second.value != row.value) {
      setting->second.below = row.value;
    }
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

struct SettingsTransaction::Impl {
  explicit Impl(Installation where)
      : installation(std::move(where)),
        lock(realPathOf(installation.settingsIni()), ".set.lock", kSettingsLockTimeOut) {}

  const Installation installation;
  const FileLock lock;
  std::vector<TableSetting> changes;
};

namespace {

// What this thread has open; null for nothing.
std::vector<TableSetting>*& openChanges() {
  thread_local std::vector<TableSetting>* changes = nullptr;
  return changes;
}

std::string namesOf(const std::vector<TableSetting>& changes) {
  std::string names;
  for (const TableSetting& change : changes) {
    names.append(names.empty() ? "[" : ", [").append(change.section).append("] ").append(change.key);
  }
  return (changes.size() == 1 ? "setting " : "settings ") + names + (changes.size() == 1 ? " is" : " are");
}

// Writes the file under its lock: `replace` gets the new file, complete under its temporary name, and puts it in place.
template <typename Replace>
void writeFile(const Installation& installation, const std::vector<SettingText>& changes, Replace replace) {
  try {
    const std::string path = realPathOf(installation.settingsIni());
    requireOwner(path);
    const FileLock lock(path, ".lock", kLockTimeOut);
    FileReplacement replacement = fileWith(path, changes);
    replace(replacement, path);
  } catch (const RuntimeError& failure) {
    throw RuntimeError(namesOf(changes) + " not written: " + failure.what(), failure.kind());
  }
}

void writeBothLayers(const Installation& installation, const std::vector<SettingText>& changes) {
  writeFile(installation, changes, [&](FileReplacement& replacement, const std::string& path) {
    writeSettingsTable(installation, changes);
    replaceBelowTable(replacement, path);
  });
}

}  // namespace

void writeSetting(const Installation& installation, const std::string& section, const std::string& key,
                  const std::string& value) {
  const TableSetting change = {section, key, value};
  if (openChanges() != nullptr) {
    openChanges()->push_back(change);
  } else {
    writeBothLayers(installation, {change});
  }
}

void writeHostSettings(const Installation& installation, const std::vector<SettingText>& settings) {
  writeFile(installation, settings, replaceBy);
}

SettingsTransaction::SettingsTransaction(const Installation& installation) {
  requireOwner(realPathOf(installation.settingsIni()));
  m_impl = std::make_unique<Impl>(installation);
  openChanges() = &m_impl->changes;
}

SettingsTransaction::~SettingsTransaction() {
  openChanges() = nullptr;
}

void SettingsTransaction::commit() {
  writeBothLayers(m_impl->installation, m_impl->changes);
  m_impl->changes.clear();
}

}  // namespace zaroruntime
