// The languages of an installation's display strings: one ini file each, resources/display.LANGUAGE.ini.
#pragma once

#include <string>
#include <vector>

#include "ZaroRuntime/Installation.h"

namespace zaroruntime {

// The language that stands in for every other.
extern const char* const kFallbackDisplayLanguage;

// Path of a language's file, which need not exist.
std::string displayFile(const Installation& installation, const std::string& language);

// Languages that have a file, in alphabetical order; empty when there is no directory to look in. Throws RuntimeError
// for one that cannot be listed.
std::vector<std::string> installedDisplayLanguages(const Installation& installation);

// What config/zaro.ini says in section [display], key language; empty for nothing. Throws RuntimeError when the file
// cannot be read.
std::string configuredDisplayLanguage(const Installation& installation);

// The names under which a language may have its file, the most particular first: "zh-Hans-CN", "zh-Hans", "zh". Takes
// names of locales too ("de_AT.UTF-8"); "C" and "POSIX" are the fallback language. Empty for what is no name of either.
std::vector<std::string> displayLanguageNames(const std::string& languageOrLocale);

// Those of `keys` that have a display text neither in the language of the installation that ZARO_HOME names nor in the
// fallback. Throws RuntimeError when the fallback is needed and cannot be read.
std::vector<std::string> missingDisplayTexts(const std::string& section, const std::vector<std::string>& keys);

}  // namespace zaroruntime
