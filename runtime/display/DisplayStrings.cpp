#include "display/DisplayStrings.h"

#include <cstdlib>
#include <filesystem>
#include <utility>

#include "PolicyLog.h"
#include "ZaroRuntime/DisplayLanguage.h"
#include "ZaroRuntime/RuntimeError.h"

namespace fs = std::filesystem;

namespace zaroruntime {

namespace {

constexpr const char* kBaseFile = "resources/display.ini";
constexpr const char* kLocaleVariables[] = {"LC_ALL", "LC_MESSAGES", "LANG"};

void warn(const std::string& text) {
  PolicyLog::log(LogLevel::Warning, "KxResbundle: %s", text.c_str());
}

std::string localeLanguage() {
  for (const char* variable : kLocaleVariables) {
    const char* value = std::getenv(variable);
    if (value != nullptr && *value != '\0') {
      return value;
    }
  }
  return "";
}

// What the installation is set to. Settings that cannot be read leave the choice to the locale.
std::string configuredLanguage() {
  try {
    return configuredDisplayLanguage(Installation::fromEnvironment());
  } catch (const RuntimeError& failure) {
    warn(failure.what());
    return "";
  }
}

}  // namespace

std::string displayBaseFile(const Installation& installation) {
  return installation.path(kBaseFile);
}

std::string displayFileOf(const std::string& baseFile, const std::string& language) {
  fs::path path(baseFile);
  const std::string extension = path.extension().string();
  return path.replace_extension("." + language + extension).string();
}

DisplayStrings::DisplayStrings(const std::string& baseFile, std::string section, const std::string& language)
    : m_baseFile(baseFile), m_section(std::move(section)) {
  const std::string configured = language.empty() ? configuredLanguage() : "";
  if (!language.empty()) {
    m_language = _openLanguage(language, "the caller");
  } else if (!configured.empty()) {
    m_language = _openLanguage(configured, "the installation");
  } else {
    m_language = _openLanguage(localeLanguage(), nullptr);
  }
  if (!m_language) {
    const std::string path = displayFileOf(m_baseFile, kFallbackDisplayLanguage);
    m_language = File{path, IniFile(path)};
  }
}

std::optional<std::string> DisplayStrings::get(const std::string& key) {
  if (auto text = _textOf(*m_language, key)) {
    return text;
  }
  const std::string fallbackPath = displayFileOf(m_baseFile, kFallbackDisplayLanguage);
  if (m_language->path == fallbackPath) {
    return std::nullopt;
  }
  if (!m_fallback) {
    m_fallback = File{fallbackPath, IniFile(fallbackPath)};
  }
  auto text = _textOf(*m_fallback, key);
  if (text) {
    warn(m_language->path + ": section [" + m_section + "]: key " + key + " is missing; the text of " + fallbackPath +
         " is shown");
  }
  return text;
}

std::optional<DisplayStrings::File> DisplayStrings::_openLanguage(const std::string& language, const char* whoAsks) const {
  for (const std::string& name : displayLanguageNames(language)) {
    const std::string path = displayFileOf(m_baseFile, name);
    std::error_code ignored;
    if (!fs::exists(path, ignored)) {
      continue;
    }
    try {
      return File{path, IniFile(path)};
    } catch (const RuntimeError& failure) {
      warn(failure.what());
      return std::nullopt;
    }
  }
  if (whoAsks != nullptr) {  // there are more locales than translations
    warn("no display strings in the language \"" + language + "\" that " + whoAsks + " asks for; they are shown in \"" +
         kFallbackDisplayLanguage + "\"");
  }
  return std::nullopt;
}

std::optional<std::string> DisplayStrings::_textOf(const File& file, const std::string& key) const {
  auto text = file.ini.get(m_section, key);
  if (text && text->empty()) {
    text.reset();
  }
  return text;
}

}  // namespace zaroruntime
