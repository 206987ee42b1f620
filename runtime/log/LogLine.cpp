#include "log/LogLine.h"

#include <strings.h>

#include <cstdio>
#include <cstring>

namespace zaroruntime {

namespace {

constexpr char kPasswordKey[] = "PWD=";
constexpr char kDatabaseKey[] = ";DATABASE=";
constexpr std::size_t kLongestLine = 16 * 1024;

std::size_t findPasswordKey(const std::string& text) {
  const std::size_t length = std::strlen(kPasswordKey);
  for (std::size_t at = 0; at + length <= text.size(); ++at) {
    if (strncasecmp(text.c_str() + at, kPasswordKey, length) == 0) {
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
  std::string line;
  line.reserve(length);
  std::size_t at = 0;
  for (; at < length && line.size() < kLongestLine; ++at) {
    const auto sign = static_cast<unsigned char>(text[at]);
    if (sign < 0x20 || sign == 0x7f) {
      char escaped[5];
      std::snprintf(escaped, sizeof escaped, "\\x%02x", static_cast<unsigned int>(sign));
      line += escaped;
    } else {
      line += text[at];
    }
  }
  if (at < length) {
    line += " ... (" + std::to_string(length - at) + " bytes more)";
  }
  return line;
}

}  // namespace zaroruntime
