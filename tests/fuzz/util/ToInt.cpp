#include "FuzzInput.h"
#include "PlainText.h"
#include "TextConversions.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text = textOf(data, size);
  const int value = toInt(text);
  FUZZ_CHECK(value == plainInt(text));
  FUZZ_CHECK(toInt(toString(value)) == value);
  return 0;
}
