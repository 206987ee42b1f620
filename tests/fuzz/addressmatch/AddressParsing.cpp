#include <memory>
#include <string>
#include <vector>

#include "ForgottenCalls.h"
#include "FuzzInput.h"
#include "KxWildcardEmail.h"
#include "SlowMatcher.h"

namespace {

// The texts on a stack, top first, which is emptied.
std::vector<std::string> takeTexts(KxWildcardNode::LabelStack& stack, bool ownTexts) {
  std::vector<std::string> texts;
  while (const KxIndexedString* handle = KxWildcardNode::getEmailAddressName(stack)) {
    texts.emplace_back(handle->getString());
    ownTexts ? KxStringtable::_deepDelete(handle) : KxStringtable::cleanupReference(handle);
  }
  return texts;
}

}  // namespace

// Splits the text with and without scratch space and a table, and compares with the slow way.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ForgottenCalls forgotten;
  const std::vector<char> block = blockOf(data, size);
  const char* address = block.data();
  slow::Split parts = slow::split(address);
  std::vector<std::string> want;
  for (auto label = parts.labels.rbegin(); label != parts.labels.rend(); ++label) {
    // A text without an @ keeps its letter case.
    want.push_back(std::string(address).find('@') != std::string::npos ? slow::lowered(*label) : *label);
  }
  want.insert(want.begin(), parts.localPart);

  KxStringtable table;
  table.getStringtableRef("a");
  for (KxStringtable* either : {&table, static_cast<KxStringtable*>(nullptr)}) {
    const std::unique_ptr<char[]> scratch(KxWildcardEmail::allocateNewEmailAddressString(address));
    KxWildcardNode::LabelStack stack;
    FUZZ_CHECK(takeTexts(KxWildcardNode::parseAddress(either, address, scratch.get(), stack), false) == want);
    FUZZ_CHECK(takeTexts(KxWildcardNode::parseAddress(either, address, nullptr, stack), true) == want);
  }
  return 0;
}
