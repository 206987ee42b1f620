// Stored passwords: texts that were not made under the key are refused, whatever they hold.
#include <cstdlib>
#include <filesystem>

#include "FuzzInput.h"
#include "ZaroRuntime/RuntimeError.h"
#include "ZaroRuntime/StoredPassword.h"

namespace {

const std::string& keyPath() {
  static const std::string path = [] {
    std::string directory = (std::filesystem::temp_directory_path() / "zaro-fuzz-XXXXXX").string();
    FUZZ_CHECK(mkdtemp(directory.data()) != nullptr);
    const std::string key = directory + "/secret.key";
    zaroruntime::createSecretKey(key);
    std::atexit([] { std::filesystem::remove_all(std::filesystem::path(keyPath()).parent_path()); });
    return key;
  }();
  return path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text = textOf(data, size);
  bool opened = true;
  try {
    zaroruntime::decryptPassword("zaro-secretbox-1:" + text, keyPath());
  } catch (const zaroruntime::RuntimeError&) {
    opened = false;
  }
  FUZZ_CHECK(!opened);
  if (size <= 255) {
    FUZZ_CHECK(zaroruntime::decryptPassword(zaroruntime::encryptPassword(text, keyPath()), keyPath()) == text);
  }
  return 0;
}
