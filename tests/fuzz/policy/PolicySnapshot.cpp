// Snapshots of a policy: a text is refused with a RuntimeError, or is a policy that comes back as it is written. The input
// is read as it is, and with the tail that it should have, so that lines are looked at whose digest nobody guesses.
#include "policy/PolicySnapshot.h"

#include <sodium.h>

#include <array>
#include <optional>
#include <sstream>

#include "FuzzInput.h"
#include "ZaroRuntime/RuntimeError.h"

namespace {

std::optional<MailPolicy> policyOf(const std::string& text) {
  std::istringstream lines(text);
  try {
    return readSnapshot([&](std::string& line) { return static_cast<bool>(std::getline(lines, line)); });
  } catch (const zaroruntime::RuntimeError&) {
    return std::nullopt;
  }
}

// Without head and tail, which have the time in them.
std::string bodyOf(const MailPolicy& policy) {
  std::string text;
  writeSnapshot(policy, [&](std::string_view piece) { text += piece; });
  const std::size_t end = text.find('\n');
  return text.substr(end, text.rfind("{\"sha256\"") - end);
}

std::string withTail(const std::string& text) {
  std::array<unsigned char, crypto_hash_sha256_BYTES> digest = {};
  crypto_hash_sha256(digest.data(), reinterpret_cast<const unsigned char*>(text.data()), text.size());
  std::array<char, 2 * crypto_hash_sha256_BYTES + 1> hex = {};
  sodium_bin2hex(hex.data(), hex.size(), digest.data(), digest.size());
  return text + R"({"sha256":")" + hex.data() + "\"}\n";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string text = textOf(data, size);
  policyOf(text);
  if (!text.empty() && text.back() != '\n') {
    text += '\n';
  }
  if (const auto policy = policyOf(withTail(text))) {
    const std::string body = bodyOf(*policy);
    std::string again;
    writeSnapshot(*policy, [&](std::string_view piece) { again += piece; });
    const auto read = policyOf(again);
    FUZZ_CHECK(read.has_value());
    FUZZ_CHECK(bodyOf(*read) == body);
    FUZZ_CHECK(read->version == policy->version);
  }
  return 0;
}
