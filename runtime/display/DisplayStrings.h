// One section of an installation's display strings in one language, with the fallback language behind it.
#pragma once

#include <optional>
#include <string>

#include "ZaroRuntime/IniFile.h"
#include "ZaroRuntime/Installation.h"

namespace zaroruntime {

// The name that stands for the files of all languages: resources/display.ini.
std::string displayBaseFile(const Installation& installation);
// That of one language: resources/display.LANGUAGE.ini.
std::string displayFileOf(const std::string& baseFile, const std::string& language);

class DisplayStrings {
 public:
  // Opens the file of `language`; when that is empty, of the language that the installation of ZARO_HOME is set to, and
  // when it is set to none, of the process's locale (LC_ALL, LC_MESSAGES, LANG). Where that is not to be had, the
  // fallback language serves; a warning is logged, except for a locale whose language has no file. Throws RuntimeError
  // when the fallback cannot be read either.
  DisplayStrings(const std::string& baseFile, std::string section, const std::string& language);

  // The text of a key; that of the fallback language, with a warning, when the language has none. Nothing when neither
  // has it. An empty text is none.
  std::optional<std::string> get(const std::string& key);

 private:
  struct File {
    std::string path;
    IniFile ini;
  };

  // `whoAsks` expects to get it; null for the locale.
  std::optional<File> _openLanguage(const std::string& language, const char* whoAsks) const;
  std::optional<std::string> _textOf(const File& file, const std::string& key) const;

  std::string m_baseFile;
  std::string m_section;
  std::optional<File> m_language;
  std::optional<File> m_fallback;  // read when it is needed
};

}  // namespace zaroruntime
