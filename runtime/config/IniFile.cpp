#include "ZaroRuntime/IniFile.h"

#define SI_IMPLEMENTATION
#define SI_NO_CONVERSION
// The library is not written for our warning options.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wshadow"
#include <SimpleIni.h>
#pragma GCC diagnostic pop

#include "ZaroRuntime/RuntimeError.h"
#include "common/FileText.h"

namespace zaroruntime {

namespace {

constexpr std::size_t kLargestIniFile = 16 * 1024 * 1024;

bool isBlank(char sign) {
  return sign == ' ' || sign == '\t';
}

void refuseWhatAnIniCannotHold(const std::string& value, const std::string& what) {
  if (value.find_first_of(std::string("\r\n\0", 3)) != std::string::npos) {
    throw RuntimeError(what + ": line ends and NUL cannot be stored in an ini file");
  }
  if (!value.empty() && (isBlank(value.front()) || isBlank(value.back()))) {
    throw RuntimeError(what + ": blanks at the beginning or the end cannot be stored in an ini file");
  }
}

}  // namespace

struct IniFile::Impl {
  CSimpleIniCaseA ini{/* UTF-8 */ true, /* multi key */ false, /* multi line */ false};
};

IniFile::IniFile(const std::string& path) : m_impl(std::make_unique<Impl>()) {
  const std::string text = readFileText(path, kLargestIniFile);
  if (text.find('\0') != std::string::npos) {
    throw RuntimeError(path + ": not an ini file (it holds NUL bytes)");
  }
  m_impl->ini.SetSpaces(false);
  if (m_impl->ini.LoadData(text.data(), text.size()) < 0) {
    throw RuntimeError(path + ": not an ini file");
  }
}

IniFile::~IniFile() = default;
IniFile::IniFile(IniFile&&) noexcept = default;
IniFile& IniFile::operator=(IniFile&&) noexcept = default;

bool IniFile::hasSection(const std::string& section) const {
  return m_impl->ini.GetSection(section.c_str()) != nullptr;
}

std::optional<std::string> IniFile::get(const std::string& section, const std::string& key) const {
  const char* value = m_impl->ini.GetValue(section.c_str(), key.c_str(), nullptr);
  return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
}

std::vector<std::pair<std::string, std::string>> IniFile::items(const std::string& section) const {
  CSimpleIniCaseA::TNamesDepend keys;
  m_impl->ini.GetAllKeys(section.c_str(), keys);
  keys.sort(CSimpleIniCaseA::Entry::LoadOrder());
  std::vector<std::pair<std::string, std::string>> result;
  for (const auto& key : keys) {
    result.emplace_back(key.pItem, m_impl->ini.GetValue(section.c_str(), key.pItem, ""));
  }
  return result;
}

void IniFile::set(const std::string& section, const std::string& key, const std::string& value) {
  refuseWhatAnIniCannotHold(value, key);
  if (m_impl->ini.SetValue(section.c_str(), key.c_str(), value.c_str()) < 0) {
    throw RuntimeError(key + ": cannot be set");
  }
}

void IniFile::write(const std::string& path, mode_t mode) const {
  std::string text;
  if (m_impl->ini.Save(text) < 0) {
    throw RuntimeError(path + ": cannot be written as an ini file");
  }
  replaceFile(path, text, mode);
}

}  // namespace zaroruntime
