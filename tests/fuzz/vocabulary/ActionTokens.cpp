#include <cstring>

#include "FuzzInput.h"
#include "ZaroAction.h"
#include "scripted/Platform.h"

namespace {

// The display string, put together from the table; every display text is its key.
std::string expectedTokens(const char* bitMap) {
  std::string expected;
  for (const ZaroAction::TokenPosition& token : ZaroAction::tokenPositions()) {
    if (bitMap[token.position] == '1') {
      expected.append(expected.empty() ? "" : "; ").append(token.resourceKey);
    }
  }
  return expected;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::vector<char> block = blockOf(data, size);
  scripted::platform().calls.clear();
  scripted::platform().log.clear();
  std::string tokens = "replaced";
  const bool valid = ZaroAction::CreateActionTokenString(block.data(), tokens);
  FUZZ_CHECK(valid == (std::strlen(block.data()) == 17));
  FUZZ_CHECK(tokens == (valid ? expectedTokens(block.data()) : ""));
  FUZZ_CHECK(valid || scripted::platform().log.lines().size() == 1);
  return 0;
}
