// Letter case in the library, the one place that knows it. Two rules: what the library looks up and matches goes by
// ASCII, so that no locale changes an answer; names are listed and compared by the process's C locale.
#pragma once

#include <algorithm>
#include <cctype>
#include <string_view>

namespace ZARO {

// --- ASCII: no other letter has a case ---

inline char lowered(char character) {
  return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
}

inline bool equalsIgnoringAsciiCase(std::string_view one, std::string_view other) {
  return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                    [](char left, char right) { return lowered(left) == lowered(right); });
}

// --- The process's C locale, byte by byte ---

inline int loweredByLocale(char character) {
  return std::tolower(static_cast<unsigned char>(character));
}

// Less than, equal to or greater than 0, as the first text orders before, with or after the second.
inline int compareIgnoringCase(const char* one, const char* other) {
  for (;; ++one, ++other) {
    const int difference = loweredByLocale(*one) - loweredByLocale(*other);
    if (difference != 0 || *one == '\0') {
      return difference;
    }
  }
}

}  // namespace ZARO
