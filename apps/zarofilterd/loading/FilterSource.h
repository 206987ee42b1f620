// Where the filter's policy comes from.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "ZaroRuntime/SettingsStore.h"
#include "policy/PolicySource.h"
#include "store/FilterSettings.h"

// What a source is told, and whom it tells.
struct SourceSurroundings {
  std::optional<std::uint64_t> leastVersion;  // an older policy is refused
  std::function<void(const std::string& server)> answered = [](const std::string&) {};
  std::function<void(const std::string& server)> failed = [](const std::string&) {};
  std::function<void(const std::string& text)> warn = [](const std::string&) {};
};

// The source that the settings name. `stored` is what they were read from. Throws RuntimeError.
std::unique_ptr<PolicySource> makePolicySource(const FilterSettings& settings, const zaroruntime::Settings& stored,
                                               const SourceSurroundings& surroundings = {});
