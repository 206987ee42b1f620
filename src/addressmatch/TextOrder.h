// Sorting many texts: by eight bytes at a time, since comparing two texts means fetching both.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace zaro_addressmatch {

// The next eight bytes of a text as a number that orders as they do; zeros from its end on.
inline std::uint64_t orderingWord(const char* text) {
  std::uint64_t word = 0;
  for (unsigned int byte = 0; byte != 8 && text[byte] != '\0'; ++byte) {
    word |= static_cast<std::uint64_t>(static_cast<unsigned char>(text[byte])) << (56 - 8 * byte);
  }
  return word;
}

// Sorts items byte by byte, unsigned, by the text that `textOf(item)` gives. An item has a `std::uint64_t key` for the
// use of the sorting. `depth` bytes are known to be the same in all. Takes no memory.
template <typename Item, typename TextOf>
void sortByText(Item* first, Item* last, TextOf textOf, std::size_t depth = 0) {
  // Beyond it whole texts are compared, which bounds the depth of the calls.
  constexpr std::size_t kDeepest = 64;
  constexpr std::ptrdiff_t kFew = 4;
  if (last - first <= kFew || depth >= kDeepest) {
    std::sort(first, last, [&](const Item& one, const Item& other) {
      return std::strcmp(textOf(one) + depth, textOf(other) + depth) < 0;
    });
    return;
  }
  for (Item* item = first; item != last; ++item) {
    item->key = orderingWord(textOf(*item) + depth);
  }
  std::sort(first, last, [](const Item& one, const Item& other) { return one.key < other.key; });
  for (Item* begin = first; begin != last;) {
    Item* end = std::find_if(begin, last, [begin](const Item& item) { return item.key != begin->key; });
    const bool ended = (begin->key & 0xFF) == 0;
    if (end - begin > 1 && !ended) {
      sortByText(begin, end, textOf, depth + sizeof begin->key);
    }
    begin = end;
  }
}

}  // namespace zaro_addressmatch
