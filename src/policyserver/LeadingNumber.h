// Numbers at the start of stored texts.
#pragma once

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <limits>

// The decimal number at the start of a text, 0 if there is none. What 32 bits cannot hold becomes the nearest that they
// can; `strtol` would answer differently in 32-bit and 64-bit programs. A negative number wraps in an unsigned one.
template <typename Integer>
Integer leadingNumber(const char* text) {
  static_assert(sizeof(Integer) == 4, "stored numbers have 32 bits");
  const long long number = std::strtoll(text, nullptr, 10);
  return static_cast<Integer>(std::clamp<long long>(number, INT_MIN, std::numeric_limits<Integer>::max()));
}
