// Letter case as addresses are compared by: that of ASCII, whatever the locale.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>

inline char lowered(char character) {
  return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
}

inline std::string inLowerCase(std::string_view text) {
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(), lowered);
  return result;
}
