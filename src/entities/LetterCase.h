// Comparisons in which letter case does not count, byte by byte by the process's C locale.
#pragma once

#include <cctype>

namespace ZARO {

inline int lowerCased(char character) {
  return std::tolower(static_cast<unsigned char>(character));
}

// Less than, equal to or greater than 0, as the first text orders before, with or after the second.
inline int compareIgnoringCase(const char* one, const char* other) {
  for (;; ++one, ++other) {
    const int difference = lowerCased(*one) - lowerCased(*other);
    if (difference != 0 || *one == '\0') {
      return difference;
    }
  }
}

}  // namespace ZARO
