#include "scripted/Settings.h"

#include <cstdlib>
#include <cstring>

#include "GlobalSetting.h"
#include "SettingsText.h"
#include "scripted/Platform.h"

using scripted::Point;
using scripted::quoted;

namespace scripted {

namespace {

template <typename Codes, typename Key>
int codeOf(const Codes& codes, const Key& key) {
  const auto found = codes.find(key);
  return found != codes.end() ? found->second : 0;
}

}  // namespace

void SettingsStore::set(const std::string& section, const std::string& key, const std::string& value) {
  m_sections[section][key] = value;
}

void SettingsStore::erase(const std::string& section, const std::string& key) {
  m_sections[section].erase(key);
}

void SettingsStore::failSection(const std::string& section, int code) {
  m_failingSections[section] = code;
}

void SettingsStore::failItem(const std::string& section, const std::string& key, int code) {
  m_failingItems[{section, key}] = code;
}

int SettingsStore::readSection(std::map<std::string, std::string>& items, const std::string& section) const {
  const auto found = m_sections.find(section);
  if (found != m_sections.end()) {
    for (const auto& [key, value] : found->second) {
      items[key] = value;
    }
  }
  return codeOf(m_failingSections, section);
}

int SettingsStore::readItem(std::string& value, const std::string& section, const std::string& key) const {
  if (const int code = codeOf(m_failingItems, std::make_pair(section, key))) {
    return code;
  }
  const auto inSection = m_sections.find(section);
  if (inSection == m_sections.end() || inSection->second.count(key) == 0) {
    return 1;
  }
  value = inSection->second.at(key);
  return 0;
}

bool operator==(const SettingWrite& left, const SettingWrite& right) {
  return left.key == right.key && left.value == right.value && left.section == right.section && left.file == right.file;
}

}  // namespace scripted

ZARO::GlobalSettingOnMem* ZARO::GlobalSettingOnMem::Instance(const char* first, bool second, const char* third,
                                                             const char* fourth, const char* fifth, const char* sixth,
                                                             bool seventh) {
  scripted::platform().calls.add("GlobalSettingOnMem::Instance",
                                 {quoted(first), second ? "true" : "false", quoted(third), quoted(fourth),
                                  quoted(fifth), quoted(sixth), seventh ? "true" : "false"});
  scripted::platform().faults.pass(Point::SettingsInstance);
  static GlobalSettingOnMem instance;
  return scripted::platform().settings.inMemoryExists ? &instance : nullptr;
}

bool ZARO::GlobalSettingOnMem::isLoaded() const {
  return scripted::platform().settings.inMemoryIsLoaded;
}

int ZARO::GlobalSettingOnMem::getItemsInSection(std::map<std::string, std::string>& items, const char* section) {
  scripted::platform().calls.add("GlobalSettingOnMem.getItemsInSection", {quoted(section)});
  scripted::platform().faults.pass(Point::SettingsRead);
  return scripted::platform().settings.inMemory.readSection(items, section);
}

int ZARO::GlobalSettingOnMem::getItem(const char* key, std::string& value, const char* section, const char* fileName) {
  scripted::platform().calls.add("GlobalSettingOnMem.getItem", {quoted(key), quoted(section), quoted(fileName)});
  scripted::platform().faults.pass(Point::SettingsRead);
  return scripted::platform().settings.inMemory.readItem(value, section, key);
}

struct ZARO::GlobalSettingIF::Impl {};

ZARO::GlobalSettingIF::GlobalSettingIF() : m_impl(nullptr) {
  scripted::platform().calls.add("GlobalSettingIF");
}

ZARO::GlobalSettingIF::~GlobalSettingIF() {
  scripted::platform().calls.addDestructor("GlobalSettingIF");
  delete m_impl;
}

int ZARO::GlobalSettingIF::getItemsInSection(std::map<std::string, std::string>& items, const char* section,
                                             const char* fileName) {
  scripted::platform().calls.add("GlobalSettingIF.getItemsInSection", {quoted(section), quoted(fileName)});
  scripted::platform().faults.pass(Point::SettingsRead);
  return scripted::platform().settings.stored.readSection(items, section);
}

int ZARO::GlobalSettingIF::setItem(const char* key, const char* value, const char* section, const char* fileName) {
  scripted::platform().calls.add("GlobalSettingIF.setItem",
                                 {quoted(key), quoted(value), quoted(section), quoted(fileName)});
  scripted::platform().faults.pass(Point::SettingsWrite);
  scripted::Settings& settings = scripted::platform().settings;
  settings.writes.push_back({key, value, section, fileName});
  return scripted::codeOf(settings.failingWrites, std::string(key));
}

bool isNum(const char* text) {
  return *text != '\0' && text[std::strspn(text, "0123456789")] == '\0';
}

bool isValidPort(const char* text) {
  const unsigned long long port = std::strtoull(text, nullptr, 10);
  return isNum(text) && port >= 1 && port <= 65535;
}
