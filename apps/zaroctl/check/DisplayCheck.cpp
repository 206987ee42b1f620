#include <algorithm>
#include <string>
#include <vector>

#include "ZaroAction.h"
#include "ZaroRuntime/DisplayLanguage.h"
#include "ZaroRuntime/IniFile.h"
#include "ZaroRuntime/RuntimeError.h"
#include "check/Checks.h"
#include "check/Restoring.h"
#include "console/Text.h"

using zaroruntime::IniFile;
using zaroruntime::Installation;
using zaroruntime::RuntimeError;

namespace {

constexpr const char* kSection = "UiDisplay";
constexpr const char* kLanguageSubject = "display language";
constexpr const char* kStringsSubject = "display strings";

bool contains(const std::vector<std::string>& texts, const std::string& text) {
  return std::find(texts.begin(), texts.end(), text) != texts.end();
}

// The language that the installation is set to.
void checkLanguage(const Installation& installation, Findings& findings) {
  std::string configured;
  try {
    configured = zaroruntime::configuredDisplayLanguage(installation);
  } catch (const RuntimeError& failure) {
    return findings.failed(kLanguageSubject, failure);
  }
  findings.check(kLanguageSubject, [&]() -> std::string {
    if (configured.empty()) {
      return "that of the locale";
    }
    const auto installed = zaroruntime::installedDisplayLanguages(installation);
    for (const std::string& name : zaroruntime::displayLanguageNames(configured)) {
      if (contains(installed, name)) {
        return ::quoted(name);
      }
    }
    throw RuntimeError(installation.settingsIni() + ": section [display]: there are no display strings in " +
                       ::quoted(configured));
  });
}

// Those that have a file, and the one that must have.
std::vector<std::string> languages(const Installation& installation, Findings& findings) {
  std::vector<std::string> languages;
  try {
    languages = zaroruntime::installedDisplayLanguages(installation);
  } catch (const RuntimeError& failure) {
    findings.failed(kStringsSubject, failure);
  }
  if (!contains(languages, zaroruntime::kFallbackDisplayLanguage)) {
    languages.emplace_back(zaroruntime::kFallbackDisplayLanguage);
  }
  return languages;
}

std::string wrongStrings(const IniFile& ini) {
  std::string wrong;
  const auto add = [&](const char* key, const char* what) {
    wrong.append(wrong.empty() ? "" : "; ").append("key ").append(key).append(what);
  };
  for (const ZaroAction::TokenPosition& token : ZaroAction::tokenPositions()) {
    const std::string text = ini.get(kSection, token.resourceKey).value_or("");
    if (text.empty()) {
      add(token.resourceKey, " is missing");
    } else if (!isPlainText(text)) {
      add(token.resourceKey, " is not UTF-8, or holds control characters");
    }
  }
  return wrong;
}

IniFile readStrings(const std::string& path) {
  try {
    return IniFile(path);
  } catch (const RuntimeError& failure) {
    const std::string name = path.substr(path.rfind('/') + 1);
    throw RuntimeError(failure.what() + restoringCommand("resources/" + name, path), failure.kind());
  }
}

void checkStrings(const std::string& path, Findings& findings) {
  findings.check(kStringsSubject, [&] {
    const IniFile ini = readStrings(path);
    const std::string wrong = wrongStrings(ini);
    if (!wrong.empty()) {
      throw RuntimeError(path + ": section [" + kSection + "]: " + wrong);
    }
    return path + ": complete";
  });
}

}  // namespace

void checkDisplay(const Installation& installation, Findings& findings) {
  checkLanguage(installation, findings);
  for (const std::string& language : languages(installation, findings)) {
    checkStrings(zaroruntime::displayFile(installation, language), findings);
  }
}
