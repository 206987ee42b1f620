// What is wrong with a policy itself, unlike with the way to it.
#pragma once

#include <cstdint>
#include <string>

#include "ZaroRuntime/RuntimeError.h"

// The policy cannot be applied as it is stored, and the text names the rule and says why.
class PolicyError : public zaroruntime::RuntimeError {
 public:
  explicit PolicyError(const std::string& text) : RuntimeError(text, zaroruntime::FailureKind::Data) {}
};

// The stored policy of a version cannot even be read: it holds what no policy can hold.
class UnreadablePolicy : public PolicyError {
 public:
  UnreadablePolicy(const std::string& text, std::uint64_t version) : PolicyError(text), m_version(version) {}

  std::uint64_t version() const { return m_version; }

 private:
  std::uint64_t m_version;
};
