// Where a service's policy comes from. For one thread alone, but for `interrupt`.
#pragma once

#include <chrono>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>

#include "policy/ArrivingPolicy.h"

// A load ended since `interrupt` was called. It tells nothing of the policy.
class LoadInterrupted : public std::exception {
 public:
  const char* what() const noexcept override { return "interrupted"; }
};

class PolicySource {
 public:
  PolicySource() = default;
  virtual ~PolicySource() = default;
  PolicySource(const PolicySource&) = delete;
  PolicySource& operator=(const PolicySource&) = delete;

  // The policy, unless its version is `known`. Throws RuntimeError, and UnreadablePolicy where it would fail again as
  // long as the version stands; waiting for its members throws the same. The policy may outlive the source.
  //
  // A source may wait for a policy that is not `known`; then it throws LoadInterrupted when `interrupt` ends that.
  virtual std::optional<ArrivingPolicy> loadUnless(std::optional<std::uint64_t> known) = 0;

  // The next load was asked for: it also asks what is left alone for a while after a failure.
  virtual void leaveOutPauses() {}

  // Any thread: ends the load that waits, or else the next one that would.
  virtual void interrupt() {}

  // How long to wait before the next load; nothing leaves it to the caller.
  virtual std::optional<std::chrono::milliseconds> pause(bool /*hasFailed*/) const { return std::nullopt; }
};

// The database of the installation.
std::unique_ptr<PolicySource> makeDatabaseSource();
