// The global settings stores behind ZARO::GlobalSettingOnMem and ZARO::GlobalSettingIF, and the settings texts.
#pragma once

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace scripted {

// One store: sections of keys and values. Reading a section that was never filled succeeds and finds nothing; reading
// a single item that is not there answers 1. For one thread.
class SettingsStore {
 public:
  void set(const std::string& section, const std::string& key, const std::string& value);
  void erase(const std::string& section, const std::string& key);
  // Reading the whole section answers `code`, after adding what is there.
  void failSection(const std::string& section, int code = 1);
  // Reading this item alone answers `code`.
  void failItem(const std::string& section, const std::string& key, int code = 1);

  // For the stand-ins.
  int readSection(std::map<std::string, std::string>& items, const std::string& section) const;
  int readItem(std::string& value, const std::string& section, const std::string& key) const;

 private:
  std::map<std::string, std::map<std::string, std::string>> m_sections;
  std::map<std::string, int> m_failingSections;
  std::map<std::pair<std::string, std::string>, int> m_failingItems;
};

struct SettingWrite {
  std::string key, value, section, file;
};
bool operator==(const SettingWrite& left, const SettingWrite& right);

struct Settings {
  SettingsStore inMemory;        // GlobalSettingOnMem
  bool inMemoryExists = true;    // Instance gives the store, not null
  bool inMemoryIsLoaded = true;  // isLoaded
  SettingsStore stored;          // GlobalSettingIF; what is written shows in `writes` only
  std::vector<SettingWrite> writes;
  std::map<std::string, int> failingWrites;  // by key: what setItem answers then; the write is recorded all the same
};

}  // namespace scripted
