// Numbers at the start of stored texts.
#pragma once

#include <cstdlib>

namespace ZARO {
namespace settings {

// The decimal number at the start of a text, 0 if there is none; of what does not fit, the lowest 32 bits are kept, and
// beyond `long long` those of the end of its range. `strtol` would answer otherwise in 32-bit programs.
template <typename Integer>
Integer leadingNumber(const char* text) {
  static_assert(sizeof(Integer) == 4, "stored numbers have 32 bits");
  return static_cast<Integer>(std::strtoll(text, nullptr, 10));
}

}  // namespace settings
}  // namespace ZARO
