// Letters, digits and blanks as ASCII has them. Words of SQL, names of columns and keys of files read the same in every
// locale; the functions of the C library would change with the process's, which is not ours and may change at any time.
#pragma once

#include <algorithm>
#include <string_view>

namespace zaroruntime {

constexpr char asciiLower(char sign) {
  return sign >= 'A' && sign <= 'Z' ? static_cast<char>(sign - 'A' + 'a') : sign;
}

constexpr char asciiUpper(char sign) {
  return sign >= 'a' && sign <= 'z' ? static_cast<char>(sign - 'a' + 'A') : sign;
}

constexpr bool isAsciiDigit(char sign) {
  return sign >= '0' && sign <= '9';
}

constexpr bool isAsciiLetter(char sign) {
  return asciiLower(sign) >= 'a' && asciiLower(sign) <= 'z';
}

// A space, or one of the five control characters that move on a page: tab, line feed, vertical tab, form feed, return.
constexpr bool isAsciiBlank(char sign) {
  return sign == ' ' || (sign >= '\t' && sign <= '\r');
}

// Whether two texts are the same but for the case of ASCII letters.
inline bool equalsIgnoringCase(std::string_view one, std::string_view other) {
  return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                    [](char left, char right) { return asciiLower(left) == asciiLower(right); });
}

}  // namespace zaroruntime
