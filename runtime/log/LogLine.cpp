#include "log/LogLine.h"

#include <cstring>

#include "ZaroRuntime/PrintableText.h"
#include "common/AsciiText.h"

namespace zaroruntime {

namespace {

constexpr char kPasswordKey[] = "PWD=";
constexpr char kDatabaseKey[] = ";DATABASE=";
constexpr std::size_t kLongestLine = 16 * 1024;

std::size_t findPasswordKey(const std::string& text) {
  const std::string_view key = kPasswordKey;
  for (std::size_t at = 0; at + key.size() <= text.size(); ++at) {
    if (equalsIgnoringCase(std::string_view(text).substr(at, key.size()), key)) {
      return at;
    }
  }
  return std::string::npos;
}

}  // namespace

std::string withoutPasswords(const std::string& text) {
  const std::size_t key = findPasswordKey(text);
  if (key == std::string::npos) {
    return text;
  }
  const std::size_t password = key + std::strlen(kPasswordKey);
  const std::size_t database = text.rfind(kDatabaseKey);
  std::string masked = text.substr(0, password) + "********";
  if (database != std::string::npos && database >= password) {
    masked += text.substr(database);
  }
  return masked;
}

std::string asOneLine(const std::string& text) {
  std::size_t length = text.size();
  while (length > 0 && text[length - 1] == '\n') {
    --length;
  }
  if (length <= kLongestLine) {
    return printableText(text.substr(0, length));
  }
  return printableText(text.substr(0, kLongestLine)) + " ... (" + std::to_string(length - kLongestLine) + " bytes more)";
}

}  // namespace zaroruntime
