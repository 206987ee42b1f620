#include "SettingsText.h"

#include <cstring>

bool isNum(const char* text) {
  return text != nullptr && *text != '\0' && text[std::strspn(text, "0123456789")] == '\0';
}

bool isValidPort(const char* text) {
  constexpr int kHighest = 65535;
  if (!isNum(text)) {
    return false;
  }
  int port = 0;
  for (; *text != '\0' && port <= kHighest; ++text) {
    port = 10 * port + (*text - '0');
  }
  return port >= 1 && port <= kHighest;
}
