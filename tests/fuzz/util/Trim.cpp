#include "FuzzInput.h"
#include "PlainText.h"
#include "TextConversions.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text = textOf(data, size);
  std::string trimmed = text;
  trim(trimmed);
  FUZZ_CHECK(trimmed == plainlyTrimmed(text));
  return 0;
}
