// How the text of an address or pattern falls into pieces: the one place that knows.
#pragma once

#include <cstddef>
#include <cstring>

#include "util/LetterCase.h"

namespace zaro_addressmatch {

using ZARO::lowered;

// A domain or local part that is exactly this text stands for any.
inline bool isWildcard(const char* text) {
  return text != nullptr && text[0] == '*' && text[1] == '\0';
}

// How "*" alone is read.
constexpr const char* kEveryAddress = "*@*";

enum class Piece { Label, BareLabel, LocalPart };

// Calls `take(piece, begin, size)` for every piece of a text other than "*", in the order of the label stack: the
// domain labels from left to right, then the local part. `begin` points into the text, or is the empty text.
// Without an "@" the whole text is both the local part and the top-level label, above an empty one; matching relies on
// it, since "user" is then found by "user@*".
template <typename Take>
void splitAddress(const char* text, Take take) {
  const char* at = std::strchr(text, '@');
  if (at == nullptr) {
    const std::size_t size = std::strlen(text);
    take(Piece::BareLabel, text + size, std::size_t{0});
    take(Piece::BareLabel, text, size);
    take(Piece::LocalPart, text, size);
    return;
  }
  for (const char* label = at + 1;;) {
    std::size_t size = 0;
    while (label[size] != '.' && label[size] != '\0') {
      ++size;
    }
    // Read before `take`, which may cut the text here.
    const bool last = label[size] == '\0';
    take(Piece::Label, label, size);
    if (last) {
      break;
    }
    label += size + 1;
  }
  take(Piece::LocalPart, text, static_cast<std::size_t>(at - text));
}

}  // namespace zaro_addressmatch
