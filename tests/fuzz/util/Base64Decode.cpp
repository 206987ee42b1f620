#include "FuzzInput.h"
#include "PlainBase64.h"
#include "ZaroMimeUtils.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::vector<char> block = blockOf(data, size);
  CBase64Utils codec;
  int length = static_cast<int>(size);
  char* bytes = codec.Decode(block.data(), &length);
  FUZZ_CHECK(bytes != nullptr);
  FUZZ_CHECK(length >= 0);
  const GatewayBytes decoded = {length, std::string(bytes, static_cast<std::size_t>(length)), codec.hasError()};
  std::free(bytes);
  FUZZ_CHECK(decoded == gatewayBase64Decoded(textOf(data, size)));
  return 0;
}
