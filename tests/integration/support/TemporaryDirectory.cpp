#include "support/TemporaryDirectory.h"

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace zarotest {

TemporaryDirectory::TemporaryDirectory()
    : m_path((std::filesystem::temp_directory_path() / "zaro-test.XXXXXX").string()) {
  if (mkdtemp(m_path.data()) == nullptr) {
    throw std::runtime_error("cannot make a temporary directory");
  }
}

TemporaryDirectory::~TemporaryDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(m_path, ignored);
}

std::string TemporaryDirectory::write(const std::string& name, const std::string& text, mode_t mode) const {
  const std::filesystem::path file = path(name);
  std::filesystem::create_directories(file.parent_path());
  std::ofstream(file, std::ios::binary) << text;
  chmod(file.c_str(), mode);
  return file.string();
}

std::string readFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

}  // namespace zarotest
