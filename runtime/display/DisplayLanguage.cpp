#include "ZaroRuntime/DisplayLanguage.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <system_error>

#include "ZaroRuntime/IniFile.h"
#include "ZaroRuntime/RuntimeError.h"
#include "common/AsciiText.h"
#include "display/DisplayStrings.h"

namespace fs = std::filesystem;

namespace zaroruntime {

namespace {

constexpr const char* kSettingsSection = "display";
constexpr const char* kLanguageKey = "language";
constexpr std::size_t kLongestName = 64;

// A name goes into a path: nothing else may come through.
bool isNameCharacter(char character) {
  return isAsciiLetter(character) || isAsciiDigit(character) || character == '-';
}

bool isLanguageName(const std::string& name) {
  return !name.empty() && name.size() <= kLongestName && name.front() != '-' && name.back() != '-' &&
         std::all_of(name.begin(), name.end(), isNameCharacter);
}

}  // namespace

const char* const kFallbackDisplayLanguage = "en";

std::string displayFile(const Installation& installation, const std::string& language) {
  return displayFileOf(displayBaseFile(installation), language);
}

std::vector<std::string> installedDisplayLanguages(const Installation& installation) {
  const fs::path base(displayBaseFile(installation));
  const std::string stem = base.stem().string() + ".";
  const std::string extension = base.extension().string();
  std::vector<std::string> languages;
  std::error_code failure;
  for (auto entry = fs::directory_iterator(base.parent_path(), failure); entry != fs::directory_iterator();
       entry.increment(failure)) {
    const std::string name = entry->path().filename().string();
    if (name.size() <= stem.size() + extension.size() || name.compare(0, stem.size(), stem) != 0 ||
        entry->path().extension() != extension) {
      continue;
    }
    const std::string language = name.substr(stem.size(), name.size() - stem.size() - extension.size());
    if (isLanguageName(language)) {
      languages.push_back(language);
    }
  }
  if (failure && failure != std::errc::no_such_file_or_directory) {
    throw RuntimeError(base.parent_path().string() + ": cannot be listed: " + failure.message(),
                       kindOfFileError(failure.value()));
  }
  std::sort(languages.begin(), languages.end());
  return languages;
}

std::string configuredDisplayLanguage(const Installation& installation) {
  return IniFile(installation.settingsIni()).get(kSettingsSection, kLanguageKey).value_or("");
}

std::vector<std::string> displayLanguageNames(const std::string& languageOrLocale) {
  std::string name = languageOrLocale.substr(0, languageOrLocale.find_first_of(".@"));
  if (name == "C" || name == "POSIX") {
    return {kFallbackDisplayLanguage};
  }
  std::replace(name.begin(), name.end(), '_', '-');
  if (!isLanguageName(name)) {
    return {};
  }
  std::vector<std::string> names = {name};
  for (std::size_t cut = name.rfind('-'); cut != std::string::npos; cut = name.rfind('-')) {
    name.erase(cut);
    names.push_back(name);
  }
  return names;
}

std::vector<std::string> missingDisplayTexts(const std::string& section, const std::vector<std::string>& keys) {
  DisplayStrings strings(displayBaseFile(Installation::fromEnvironment()), section, "");
  std::vector<std::string> missing;
  std::copy_if(keys.begin(), keys.end(), std::back_inserter(missing),
               [&](const std::string& key) { return !strings.get(key); });
  return missing;
}

}  // namespace zaroruntime
