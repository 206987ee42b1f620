// Snapshots of a policy as texts, for tests.
#pragma once

#include <sodium.h>

#include <array>
#include <sstream>
#include <string>
#include <string_view>

#include "policy/PolicySnapshot.h"

namespace zarotest {

inline std::string snapshotText(const MailPolicy& policy) {
  std::string text;
  writeSnapshot(policy, [&](std::string_view piece) { text += piece; });
  return text;
}

inline MailPolicy policyInSnapshot(const std::string& text) {
  std::istringstream lines(text);
  return readSnapshot([&](std::string& line) { return static_cast<bool>(std::getline(lines, line)); });
}

// Without head and tail, which have the time in them.
inline std::string snapshotBody(const std::string& text) {
  const std::size_t end = text.find('\n');
  return text.substr(end, text.rfind("{\"sha256\"") - end);
}

// With the tail that the text should have.
inline std::string withSnapshotTail(const std::string& text) {
  std::array<unsigned char, crypto_hash_sha256_BYTES> digest = {};
  crypto_hash_sha256(digest.data(), reinterpret_cast<const unsigned char*>(text.data()), text.size());
  std::array<char, 2 * crypto_hash_sha256_BYTES + 1> hex = {};
  sodium_bin2hex(hex.data(), hex.size(), digest.data(), digest.size());
  return text + R"({"sha256":")" + hex.data() + "\"}\n";
}

}  // namespace zarotest
