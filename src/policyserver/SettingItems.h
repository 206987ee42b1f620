// Settings as the store holds them: texts by key, section by section.
#pragma once

#include <map>
#include <string>

#include "ZaroPolicyServerInterface.h"

namespace ZARO {
namespace settings {

using Items = std::map<std::string, std::string>;
using NumberRule = ZaroPolicyServerInterface::NumberRule;

constexpr const char* kFile = "zaro.ini";
constexpr const char* kServerSection = "policy_server";
constexpr const char* kClientSection = "policy_client";

constexpr const char* kBacklog = "backlog";
constexpr const char* kKeepAlive = "keep-alive";
constexpr const char* kPort = "PolicyServerPort";
constexpr const char* kProtocol = "protocol";
constexpr const char* kRecvTimeout = "recv_timeout_secs";
constexpr const char* kSendTimeout = "send_timeout_secs";
constexpr const char* kThreads = "threads";
constexpr const char* kMaxThreads = "max_threads";
constexpr const char* kCacheTtl = "ldap_cache_TTL_minutes";
constexpr const char* kHost = "host";

// For the columns of rules.
constexpr std::size_t kAnyLength = static_cast<std::size_t>(-1);
constexpr std::nullopt_t kCallers = std::nullopt;

// The rule of a setting that is no number: it has a key and nothing else.
constexpr NumberRule wordRule(const char* key) {
  return {key, false, kAnyLength, 0, 0, kCallers};
}

// The text of a key; null if it is missing.
const std::string* find(const Items& items, const char* key);

bool isKeepAlive(const std::string& text);
ZaroPolicyServerInterface::Protocol protocolOf(const std::string& text);

// The rule of a number in a table of settings; null if there is none.
template <typename Row, std::size_t Size>
const NumberRule* findRule(const Row (&rows)[Size], const std::string& key) {
  for (const Row& row : rows) {
    if (row.number != nullptr && key == row.rule.key) {
      return &row.rule;
    }
  }
  return nullptr;
}

}  // namespace settings
}  // namespace ZARO
