#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "FuzzInput.h"
#include "KxResbundle.h"
#include "ZaroAction.h"

namespace fs = std::filesystem;

namespace {

// An installation whose English display strings are the input.
class Installation {
 public:
  Installation() : m_home(root() / ("zaro-fuzz-" + std::to_string(getpid()))) {
    fs::create_directories(m_home / "resources");
    fs::create_directories(m_home / "config");
    std::ofstream(m_home / "config/zaro.ini") << "[display]\nlanguage=en\n";
    setenv("ZARO_HOME", m_home.c_str(), 1);
    setenv("ZARO_LOG_LEVEL", "0", 1);
  }
  ~Installation() {
    std::error_code ignored;
    fs::remove_all(m_home, ignored);
  }
  Installation(const Installation&) = delete;
  Installation& operator=(const Installation&) = delete;

  void write(const std::uint8_t* data, std::size_t size) const {
    std::ofstream file(m_home / "resources/display.en.ini", std::ios::binary);
    file.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    FUZZ_CHECK(file.flush());
  }

 private:
  // Memory where there is such a file system: the engine writes thousands of files a second.
  static fs::path root() {
    const fs::path memory = "/dev/shm";
    return fs::is_directory(memory) ? memory : fs::temp_directory_path();
  }

  fs::path m_home;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Installation installation;
  installation.write(data, size);
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
