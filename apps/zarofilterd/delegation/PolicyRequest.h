// The protocol of Postfix's policy delegation: lines of NAME=VALUE up to an empty one, answered by an action.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>

class PolicyRequest {
 public:
  static constexpr std::size_t kLongest = 65536;  // bytes; Postfix sends a few hundred

  // Takes the first request out of what a connection has sent. Nothing when it is not whole yet.
  static std::optional<PolicyRequest> takeFrom(std::string& received);

  // An attribute's value; empty when the request lacks it.
  std::string value(const char* name) const;

 private:
  std::map<std::string, std::string> m_attributes;
};

// The answer that has Postfix do an action.
std::string policyAnswer(const std::string& action);
