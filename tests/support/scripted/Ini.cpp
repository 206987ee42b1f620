#include "scripted/Ini.h"

#include <cstring>

#include "ConfigFileOnDisk.h"
#include "NewDecryptStr.h"
#include "scripted/Platform.h"

using scripted::Point;
using scripted::quoted;

namespace scripted {

void Ini::open(const std::string& path) {
  m_files[path].opened = true;
}

void Ini::set(const std::string& path, const std::string& section, const std::string& key, const std::string& value) {
  m_files[path].values[{section, key}] = value;
}

void Ini::leaveWhenMissing(const std::string& text) {
  m_leftWhenMissing = text;
}

void Ini::reset() {
  m_files.clear();
  m_leftWhenMissing.reset();
}

const IniFile& Ini::file(const std::string& path) const {
  static const IniFile missing;
  const auto found = m_files.find(path);
  return found != m_files.end() ? found->second : missing;
}

void Passwords::decrypt(const std::string& stored, const std::string& clear) {
  m_clearTexts[stored] = clear;
}

void Passwords::spoilWhatFails() {
  m_spoils = true;
}

void Passwords::reset() {
  m_clearTexts.clear();
  m_spoils = false;
}

const std::string* Passwords::clearTextOf(const std::string& stored) const {
  const auto found = m_clearTexts.find(stored);
  return found != m_clearTexts.end() ? &found->second : nullptr;
}

}  // namespace scripted

struct ZARO::ConfigFileOnDisk::Impl {
  std::string path;
};

ZARO::ConfigFileOnDisk::ConfigFileOnDisk(const char* path) : m_impl(nullptr) {
  scripted::platform().calls.add("ConfigFileOnDisk", {quoted(path)});
  scripted::platform().faults.pass(Point::IniOpen);
  m_impl = new Impl{path};
}

ZARO::ConfigFileOnDisk::~ConfigFileOnDisk() {
  delete m_impl;
}

bool ZARO::ConfigFileOnDisk::isOpen() const {
  return scripted::platform().ini.file(m_impl->path).opened;
}

const char* ZARO::ConfigFileOnDisk::getPath() const {
  return m_impl->path.c_str();
}

bool ZARO::ConfigFileOnDisk::getValue(const char* section, const char* key, std::string& value) const {
  scripted::platform().calls.add("ConfigFileOnDisk.getValue", {quoted(section), quoted(key)});
  scripted::platform().faults.pass(Point::IniRead);
  const auto& values = scripted::platform().ini.file(m_impl->path).values;
  const auto found = values.find({section, key});
  if (found != values.end()) {
    value = found->second;
    return true;
  }
  value = scripted::platform().ini.leftWhenMissing().value_or(value);
  return false;
}

int NewDecryptStr(char* text) {
  scripted::platform().calls.add("NewDecryptStr", {quoted(text)});
  scripted::platform().faults.pass(Point::Decrypt);
  if (const std::string* clear = scripted::platform().passwords.clearTextOf(text)) {
    std::strcpy(text, clear->c_str());
    return 1;
  }
  if (scripted::platform().passwords.spoils()) {
    std::memset(text, '?', std::strlen(text));
  }
  return 0;
}
