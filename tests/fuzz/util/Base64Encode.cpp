#include "FuzzInput.h"
#include "PlainBase64.h"
#include "ZaroMimeUtils.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::vector<char> block(data, data + size);
  CBase64Utils codec;
  char* encoded = codec.Encode(block.data(), static_cast<int>(size));
  if (size == 0) {
    FUZZ_CHECK(encoded == nullptr);
    return 0;
  }
  FUZZ_CHECK(encoded != nullptr);
  const std::string text = encoded;
  FUZZ_CHECK(text == gatewayBase64(textOf(data, size)));

  // Back again: whole groups come back as they were.
  int length = static_cast<int>(text.size());
  char* bytes = codec.Decode(encoded, &length);
  FUZZ_CHECK(bytes != nullptr);
  const std::size_t whole = size / 3 * 3;
  FUZZ_CHECK(std::string(bytes, whole) == textOf(data, whole));
  FUZZ_CHECK(!codec.hasError());
  std::free(bytes);
  std::free(encoded);
  return 0;
}
