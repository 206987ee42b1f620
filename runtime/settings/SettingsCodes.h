// What the platform's settings classes have in common: codes instead of exceptions, and one file.
#pragma once

#include <exception>
#include <map>
#include <string>

#include "PolicyLog.h"
#include "ZaroRuntime/RuntimeError.h"
#include "ZaroRuntime/SettingsStore.h"
#include "common/ThrownText.h"

namespace zaroruntime {

constexpr int kDone = 0;
constexpr int kFailed = 1;

// Runs an operation that answers a code. What it throws is logged once, under the class's name, and `kFailed`.
template <typename Operation>
int answeringCode(const char* className, Operation operation) {
  try {
    return operation();
  } catch (const std::exception& failure) {
    keepFailure(failure.what(), kindOf(failure));
    PolicyLog::log(LogLevel::Error, "%s: %s", className, failure.what());
    return kFailed;
  }
}

// The text of an argument that must be there.
inline std::string requiredText(const char* text, const char* what) {
  if (text == nullptr) {
    throw RuntimeError(std::string("no ") + what + " is named");
  }
  return text;
}

// Settings are kept in one file; null names it too.
inline void requireSettingsFile(const char* fileName) {
  if (fileName != nullptr && std::string(fileName) != "zaro.ini") {
    throw RuntimeError(std::string(fileName) + ": settings are kept in zaro.ini alone");
  }
}

// Adds a section's items, in the place of those that are there already.
inline void addItems(const Settings& settings, const std::string& section, std::map<std::string, std::string>& items) {
  const auto found = settings.sections.find(section);
  if (found == settings.sections.end()) {
    return;
  }
  for (const auto& [key, setting] : found->second) {
    items[key] = setting.value;
  }
}

inline void warnOfDatabase(const char* className, const Settings& settings) {
  if (!settings.databaseFailure.empty()) {
    PolicyLog::log(LogLevel::Warning, "%s: zaro.ini answers alone: %s", className, settings.databaseFailure.c_str());
  }
}

}  // namespace zaroruntime
