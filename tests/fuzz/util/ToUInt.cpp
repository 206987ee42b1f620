#include "FuzzInput.h"
#include "PlainText.h"
#include "TextConversions.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text = textOf(data, size);
  const unsigned int value = toUInt(text);
  FUZZ_CHECK(value == plainUInt(text));
  FUZZ_CHECK(toUInt(toString(value)) == value);
  return 0;
}
