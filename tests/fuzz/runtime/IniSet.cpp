// Input: a section, a key and a value, a line each, and then the text of an ini file.
#include <map>
#include <string>
#include <utility>

#include "FuzzInput.h"
#include "ZaroRuntime/IniFile.h"
#include "ZaroRuntime/RuntimeError.h"
#include "config/IniText.h"

namespace {

using zaroruntime::IniFile;
using zaroruntime::RuntimeError;

// Takes the first line off a text.
std::string takeLine(std::string& text) {
  const std::size_t end = text.find('\n');
  std::string line = text.substr(0, end);
  text.erase(0, end == std::string::npos ? end : end + 1);
  return line;
}

using Items = std::map<std::pair<std::string, std::string>, std::string>;

Items itemsOf(const IniFile& ini) {
  Items items;
  for (const std::string& section : ini.sections()) {
    for (const auto& [key, value] : ini.items(section)) {
      items[{section, key}] = value;
    }
  }
  return items;
}

// Sets a value and checks that it is there and nothing else has changed.
void checkSetting(IniFile& ini, const std::string& section, const std::string& key, const std::string& value) {
  Items wanted = itemsOf(ini);
  const std::string before = ini.text();
  try {
    ini.set(section, key, value);
  } catch (const RuntimeError&) {
    FUZZ_CHECK(ini.text() == before);
    FUZZ_CHECK(itemsOf(ini) == wanted);
    return;
  }
  wanted[{section, key}] = value;
  FUZZ_CHECK(itemsOf(ini) == wanted);
  FUZZ_CHECK(itemsOf(IniFile::parse(ini.text(), "written")) == wanted);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string text = textOf(data, size);
  const std::string section = takeLine(text);
  const std::string key = takeLine(text);
  const std::string value = takeLine(text);
  try {
    IniFile ini = IniFile::parse(text, "text");
    const bool sound = !zaroruntime::malformedIniLine(text);
    FUZZ_CHECK(ini.text() == text);
    // A file that is nothing but malformed may have lines that the parser joins; those are looked at for crashes.
    if (sound) {
      checkSetting(ini, section, key, value);
      FUZZ_CHECK(!zaroruntime::malformedIniLine(ini.text()));
    } else {
      zaroruntime::withIniValue(text, "s", "k", "v");
    }
  } catch (const RuntimeError&) {
    FUZZ_CHECK(text.find('\0') != std::string::npos);
  }
  return 0;
}
