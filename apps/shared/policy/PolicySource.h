// Where a service's policy comes from. For one thread alone.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "policy/MailPolicy.h"

class PolicySource {
 public:
  PolicySource() = default;
  virtual ~PolicySource() = default;
  PolicySource(const PolicySource&) = delete;
  PolicySource& operator=(const PolicySource&) = delete;

  // The policy, unless its version is `known`. Throws RuntimeError, and UnreadablePolicy where it would fail again as
  // long as the version stands.
  virtual std::optional<MailPolicy> loadUnless(std::optional<std::uint64_t> known) = 0;
};

// The database of the installation.
std::unique_ptr<PolicySource> makeDatabaseSource();
