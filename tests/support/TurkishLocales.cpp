#include "TurkishLocales.h"

#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace zarotest {

namespace fs = std::filesystem;

TurkishLocales::TurkishLocales() {
  std::string pattern = (fs::temp_directory_path() / "zaro-locales-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) {
    throw std::runtime_error("no directory for locales: " + pattern);
  }
  m_directory = pattern;
  // Only what LC_CTYPE is about: the other categories take seconds. localedef warns of them, and so does not end with 0.
  const std::string source = m_directory + "/tr_TR";
  std::ofstream(source) << "LC_CTYPE\ncopy \"tr_TR\"\nEND LC_CTYPE\n";
  for (const std::string name : kNames) {
    const std::string charset = name.substr(name.find('.') + 1);
    const std::string locale = m_directory + "/" + name;
    const std::string command = "localedef -c --quiet -i '" + source + "' -f " + charset + " '" + locale + "'";
    static_cast<void>(std::system(command.c_str()));
    if (!fs::exists(locale + "/LC_CTYPE")) {
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
