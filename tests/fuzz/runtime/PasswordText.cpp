// Stored passwords: texts that were not made under the key are refused, whatever they hold.
#include <cstdlib>
#include <filesystem>

#include "FuzzInput.h"
#include "ZaroRuntime/RuntimeError.h"
#include "ZaroRuntime/StoredPassword.h"

namespace {

// A key in a directory of its own, which goes with the program.
class KeyDirectory {
 public:
  KeyDirectory() : m_path((std::filesystem::temp_directory_path() / "zaro-fuzz-XXXXXX").string()) {
    FUZZ_CHECK(mkdtemp(m_path.data()) != nullptr);
    zaroruntime::createSecretKey(key());
  }
  ~KeyDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }
  KeyDirectory(const KeyDirectory&) = delete;
  KeyDirectory& operator=(const KeyDirectory&) = delete;

  std::string key() const { return m_path + "/secret.key"; }

 private:
  std::string m_path;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const KeyDirectory directory;
  const std::string text = textOf(data, size);
  bool opened = true;
  try {
    zaroruntime::decryptPassword("zaro-secretbox-1:" + text, directory.key());
  } catch (const zaroruntime::RuntimeError&) {
    opened = false;
  }
  FUZZ_CHECK(!opened);
  if (size <= 255) {
    FUZZ_CHECK(zaroruntime::decryptPassword(zaroruntime::encryptPassword(text, directory.key()), directory.key()) == text);
  }
  return 0;
}
