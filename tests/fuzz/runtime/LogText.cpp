// Log lines: no password and no control character gets through.
#include "FuzzInput.h"
#include "log/LogLine.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text = textOf(data, size);
  const std::string line = zaroruntime::asOneLine(zaroruntime::withoutPasswords(text));
  for (const char sign : line) {
    FUZZ_CHECK(static_cast<unsigned char>(sign) >= 0x20 && sign != 0x7f);
  }
  // The password may be anything without the key that ends it.
  if (text.find(";DATABASE=") == std::string::npos) {
    FUZZ_CHECK(zaroruntime::withoutPasswords("UID=u;PWD=" + text + ";DATABASE=d") == "UID=u;PWD=********;DATABASE=d");
  }
  return 0;
}
