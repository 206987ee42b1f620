// Sorting many texts: by eight bytes at a time, since comparing two texts means fetching both.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace zaro_addressmatch {

// The next eight bytes of a text as a number that orders as they do; zeros from its end on.
inline std::uint64_t orderingWord(const char* text) {
  std::uint64_t word = 0;
  for (unsigned int byte = 0; byte != 8 && text[byte] != '\0'; ++byte) {
    word |= static_cast<std::uint64_t>(static_cast<unsigned char>(text[byte])) << (56 - 8 * byte);
  }
  return word;
}

// What is sorted, and by what. The key is for the use of the sorting.
template <typename Owner>
struct TextOf {
  std::uint64_t key;
  const char* text;
  Owner* owner;
};

// Sorts by key. Byte after byte from the lowest one on, which foresees nothing and so is never wrong about it. Throws
// std::bad_alloc, everything then as it was.
template <typename Item>
void sortByKey(Item* first, Item* last) {
  constexpr std::ptrdiff_t kMany = 1024;
  if (last - first < kMany) {
    std::sort(first, last, [](const Item& one, const Item& other) { return one.key < other.key; });
    return;
  }
  constexpr unsigned int kBytes = sizeof first->key;
  std::array<std::array<std::size_t, 256>, kBytes> counts = {};
  const auto digit = [](const Item& item, unsigned int byte) { return item.key >> 8 * byte & 0xFF; };
  for (const Item* item = first; item != last; ++item) {
    for (unsigned int byte = 0; byte != kBytes; ++byte) {
      ++counts[byte][digit(*item, byte)];
    }
  }
  std::vector<Item> room(first, last);
  Item* from = first;
  Item* to = room.data();
  const std::size_t size = room.size();
  for (unsigned int byte = 0; byte != kBytes; ++byte) {
    if (counts[byte][digit(*from, byte)] == size) {
      continue;  // the same in all
    }
    std::array<Item*, 256> places = {};
    Item* place = to;
    for (std::size_t value = 0; value != places.size(); ++value) {
      places[value] = place;
      place += counts[byte][value];
    }
    for (const Item* item = from; item != from + size; ++item) {
      *places[digit(*item, byte)]++ = *item;
    }
    std::swap(from, to);
  }
  if (from != first) {
    std::copy(from, from + size, first);
  }
}

// Sorts byte by byte, unsigned, by the texts, of which the first `depth` bytes are known to be the same. Throws
// std::bad_alloc, the items then in any order.
template <typename Item>
void sortByText(Item* first, Item* last, std::size_t depth = 0) {
  // Beyond it whole texts are compared, which bounds the depth of the calls.
  constexpr std::size_t kDeepest = 64;
  constexpr std::ptrdiff_t kFew = 8;
  constexpr std::ptrdiff_t kAhead = 16;
  if (last - first <= kFew || depth >= kDeepest) {
    std::sort(first, last, [depth](const Item& one, const Item& other) {
      return std::strcmp(one.text + depth, other.text + depth) < 0;
    });
    return;
  }
  for (Item* item = first; item != last; ++item) {
    item->key = orderingWord(item->text + depth);
  }
  sortByKey(first, last);
  for (Item* begin = first; begin != last;) {
    Item* end = begin + 1;
    while (end != last && end->key == begin->key) {
      ++end;
    }
    if (last - end > kAhead) {
      __builtin_prefetch(end[kAhead].text + depth);
    }
    const bool ended = (begin->key & 0xFF) == 0;
    if (end - begin > 1 && !ended) {
      sortByText(begin, end, depth + sizeof begin->key);
    }
    begin = end;
  }
}

}  // namespace zaro_addressmatch
