#include "TurkishLocales.h"

#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

namespace zarotest {

namespace fs = std::filesystem;

TurkishLocales::TurkishLocales() {
  std::string pattern = (fs::temp_directory_path() / "zaro-locales-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) {
    throw std::runtime_error("no directory for locales: " + pattern);
  }
  m_directory = pattern;
  for (const std::string name : kNames) {
    const std::string charset = name.substr(name.find('.') + 1);
    const std::string command = "localedef -i tr_TR -f " + charset + " '" + m_directory + "/" + name + "'";
    if (std::system(command.c_str()) != 0) {
      fs::remove_all(m_directory);
      throw std::runtime_error(command + " failed (is the package locales installed?)");
    }
  }
  setenv("LOCPATH", m_directory.c_str(), 1);
}

TurkishLocales::~TurkishLocales() {
  unsetenv("LOCPATH");
  std::error_code ignored;
  fs::remove_all(m_directory, ignored);
}

void setCtype(const char* locale) {
  if (std::setlocale(LC_CTYPE, locale) == nullptr) {
    throw std::runtime_error(std::string("there is no locale ") + locale);
  }
}

}  // namespace zarotest
