// Where the filter's policy comes from. For the loader's thread alone.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "policy/MailPolicy.h"
#include "store/FilterSettings.h"

class PolicySource {
 public:
  PolicySource() = default;
  virtual ~PolicySource() = default;
  PolicySource(const PolicySource&) = delete;
  PolicySource& operator=(const PolicySource&) = delete;

  // The policy, unless its version is `known`. Throws RuntimeError.
  virtual std::optional<MailPolicy> loadUnless(std::optional<std::uint64_t> known) = 0;
};

// The one that the settings name. Throws RuntimeError.
std::unique_ptr<PolicySource> makePolicySource(const FilterSettings& settings);
