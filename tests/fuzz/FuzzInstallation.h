// An installation directory whose files are what the engine makes up. It lies where TMPDIR says, which is memory best:
// the engine writes thousands of files a second.
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>

#include "FuzzInput.h"
#include "ZaroRuntime/RuntimeError.h"

class FuzzInstallation {
 public:
  // Without any file, and with ZARO_HOME naming it. It logs nothing.
  FuzzInstallation()
      : m_home((std::filesystem::temp_directory_path() / ("zaro-fuzz-" + std::to_string(getpid()))).string()) {
    for (const char* directory : {"config", "resources", "data", "state"}) {
      std::filesystem::create_directories(path(directory));
    }
    setenv("ZARO_HOME", m_home.c_str(), 1);
    setenv("ZARO_LOG_LEVEL", "0", 1);
    unsetenv("ZARO_DB_INI");
  }
  ~FuzzInstallation() {
    std::error_code ignored;
    std::filesystem::remove_all(m_home, ignored);
  }
  FuzzInstallation(const FuzzInstallation&) = delete;
  FuzzInstallation& operator=(const FuzzInstallation&) = delete;

  const std::string& home() const { return m_home; }
  std::string path(const std::string& relative) const { return m_home + "/" + relative; }
  void write(const std::string& relative, std::string_view text) const {
    std::ofstream file(path(relative), std::ios::binary | std::ios::trunc);
    file.write(text.data(), static_cast<std::streamsize>(text.size()));
    FUZZ_CHECK(file.flush());
  }

 private:
  std::string m_home;
};

// What reading such files gives; none where they are refused, which always says why.
template <typename Read>
auto valueOf(const Read& read) -> std::optional<decltype(read())> {
  try {
    return read();
  } catch (const zaroruntime::RuntimeError& refusal) {
    FUZZ_CHECK(*refusal.what() != '\0');
    return std::nullopt;
  }
}
