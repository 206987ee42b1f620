#include "FuzzInput.h"
#include "FuzzInstallation.h"
#include "KxResbundle.h"
#include "ZaroAction.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const FuzzInstallation installation;
  installation.write("config/zaro.ini", "[display]\nlanguage=en\n");
  installation.write("resources/display.en.ini", textOf(data, size));
  ZARO::KxResbundle bundle;
  try {
    bundle._init(ZARO::KxResbundle::GetResourceFileName(), "UiDisplay", nullptr);
  } catch (const char* refused) {
    FUZZ_CHECK(*refused != '\0');
    return 0;
  }
  std::string expected;
  for (const ZaroAction::TokenPosition& token : ZaroAction::tokenPositions()) {
    std::string text;
    const bool found = bundle.getString(token.resourceKey, text);
    FUZZ_CHECK(found == !text.empty());
    FUZZ_CHECK(text.find_first_of(std::string("\n\0", 2)) == std::string::npos);
    if (token.position < ZaroAction::kActionBitMapLength) {
      expected.append(expected.empty() ? "" : "; ").append(found ? text : token.resourceKey);
    }
  }
  std::string tokens;
  FUZZ_CHECK(ZaroAction::CreateActionTokenString("11111111111111111", tokens));
  FUZZ_CHECK(tokens == expected);
  return 0;
}
