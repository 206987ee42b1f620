// Snapshots of a policy: a text is refused with a RuntimeError, or is a policy that comes back as it is written. The input
// is read as it is, and with the tail that it should have, so that lines are looked at whose digest would not be guessed.
#include <optional>

#include "FuzzInput.h"
#include "ZaroRuntime/RuntimeError.h"
#include "support/SnapshotText.h"

namespace {

using zarotest::snapshotBody;
using zarotest::snapshotText;

std::optional<MailPolicy> policyOf(const std::string& text) {
  try {
    return zarotest::policyInSnapshot(text);
  } catch (const zaroruntime::RuntimeError&) {
    return std::nullopt;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string text = textOf(data, size);
  policyOf(text);
  if (!text.empty() && text.back() != '\n') {
    text += '\n';
  }
  if (const auto policy = policyOf(zarotest::withSnapshotTail(text))) {
    const std::string again = snapshotText(*policy);
    const auto read = policyOf(again);
    FUZZ_CHECK(read.has_value());
    FUZZ_CHECK(snapshotBody(snapshotText(*read)) == snapshotBody(again));
    FUZZ_CHECK(read->version == policy->version);
  }
  return 0;
}
