// Documents of a policy: what is accepted has one form, which comes back as it was, and merges with itself into itself.
#include "store/PolicyDocument.h"

#include <memory>
#include <string>

#include "FuzzInput.h"

namespace {

// Null for a text that is refused.
std::unique_ptr<Json> documentOf(const std::string& text, const Json* stored) {
  try {
    return std::make_unique<Json>(readPolicyText(text, stored));
  } catch (const PolicyTextError& refusal) {
    FUZZ_CHECK(*refusal.what() != '\0');
    return nullptr;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text = textOf(data, size);
  const auto whole = documentOf(text, nullptr);
  const Json empty = emptyPolicy();
  const auto merged = documentOf(text, &empty);
  FUZZ_CHECK(!whole || merged);
  if (!merged) {
    return 0;
  }
  FUZZ_CHECK(!whole || *whole == *merged);
  const std::string written = policyText(*merged);
  const auto again = documentOf(written, nullptr);
  FUZZ_CHECK(again && *again == *merged && policyText(*again) == written);
  FUZZ_CHECK(differencesOf(*merged, *again).empty());
  const auto unchanged = documentOf(text, merged.get());
  FUZZ_CHECK(unchanged && *unchanged == *merged);
  // What is added to nothing goes away again.
  std::size_t rows = 0;
  for (const PolicyTable& table : policyTables()) {
    rows += merged->at(table.key).size();
  }
  FUZZ_CHECK(differencesOf(empty, *merged).size() == rows);
  FUZZ_CHECK(differencesOf(*merged, empty).size() == rows);
  return 0;
}
