// In-place radix sort of texts, eight bytes at a time, from the most significant byte on (American flag sort).
//
// McIlroy, Bostic, McIlroy, "Engineering Radix Sort", Computing Systems 1993. The key of an item holds the next eight bytes
// of its text, so that most comparisons need no look at the text, which would be a cache miss.
//
//   invariant   items with different keys are in the order of their texts; those with equal keys are sorted by what follows
//   cost        one pass over the items for each byte that distinguishes them; std::sort where few are left
//   memory      16 bytes an item, which the caller holds, and a fixed depth of calls: whole texts are compared beyond it
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include "addressmatch/text/Prefetch.h"

namespace zaro_addressmatch {

// Eight bytes of a text as a number that orders as they do.
inline std::uint64_t orderingWord(std::uint64_t word) {
  return __builtin_bswap64(word);
}

// The next eight bytes of a text, likewise; zeros from its end on.
inline std::uint64_t orderingWord(const char* text) {
  std::uint64_t word = 0;
  for (unsigned int byte = 0; byte != 8 && text[byte] != '\0'; ++byte) {
    word |= static_cast<std::uint64_t>(static_cast<unsigned char>(text[byte])) << (56 - 8 * byte);
  }
  return word;
}

// An item to sort. The sort overwrites the key.
template <typename Owner>
struct Keyed {
  std::uint64_t key;
  Owner* owner;
};

// Sorts by key, in place, byte by byte from byte number `byte` on, the highest being number 8. No data-dependent
// branches, so none are mispredicted.
template <typename Item>
void sortByKey(Item* first, Item* last, unsigned int byte = sizeof(std::uint64_t)) {
  constexpr std::ptrdiff_t kMany = 512;
  if (last - first < kMany || byte == 0) {
    std::sort(first, last, [](const Item& one, const Item& other) { return one.key < other.key; });
    return;
  }
  const auto digit = [byte](const Item& item) { return static_cast<std::size_t>(item.key >> 8 * (byte - 1) & 0xFF); };
  constexpr std::size_t kDigits = 256;
  std::array<Item*, kDigits> ends = {};
  std::array<std::size_t, kDigits> counts = {};
  for (const Item* item = first; item != last; ++item) {
    ++counts[digit(*item)];
  }
  std::array<Item*, kDigits> heads = {};
  Item* place = first;
  for (std::size_t value = 0; value != kDigits; ++value) {
    heads[value] = place;
    place += counts[value];
    ends[value] = place;
  }
  // Each item goes to the head of its bucket, and the item that stood there goes on to its own.
  for (std::size_t value = 0; value != kDigits; ++value) {
    while (heads[value] != ends[value]) {
      Item item = *heads[value];
      for (std::size_t to = digit(item); to != value; to = digit(item)) {
        std::swap(item, *heads[to]++);
      }
      *heads[value]++ = item;
    }
  }
  Item* begin = first;
  for (std::size_t value = 0; value != kDigits; ++value) {
    sortByKey(begin, ends[value], byte - 1);
    begin = ends[value];
  }
}

template <typename Item, typename TextOf>
void sortByText(Item* first, Item* last, TextOf textOf, std::size_t depth);

// Sorts byte by byte, unsigned, by the texts that `textOf(owner)` gives, of which the first `depth` bytes are known to
// be the same and the keys hold the next. In place.
template <typename Item, typename TextOf>
void sortByKeyAndText(Item* first, Item* last, TextOf textOf, std::size_t depth) {
  constexpr std::ptrdiff_t kAhead = 16;
  sortByKey(first, last);
  for (Item* begin = first; begin != last;) {
    Item* end = begin + 1;
    while (end != last && end->key == begin->key) {
      ++end;
    }
    if (last - end > kAhead) {
      prefetchLine(end[kAhead].owner);
      prefetchLine(end[kAhead].owner + 2);  // where most have their texts
    }
    const bool ended = (begin->key & 0xFF) == 0;
    if (end - begin > 1 && !ended) {
      sortByText(begin, end, textOf, depth + sizeof begin->key);
    }
    begin = end;
  }
}

// The same, whatever the keys hold.
template <typename Item, typename TextOf>
void sortByText(Item* first, Item* last, TextOf textOf, std::size_t depth) {
  // Beyond it whole texts are compared, which bounds the depth of the calls.
  constexpr std::size_t kDeepest = 64;
  constexpr std::ptrdiff_t kFew = 8;
  const auto precedes = [textOf, depth](const Item& one, const Item& other) {
    return std::strcmp(textOf(*one.owner) + depth, textOf(*other.owner) + depth) < 0;
  };
  if (last - first == 2) {
    // A local part and an address that begins with it, most often.
    if (precedes(first[1], first[0])) {
      std::swap(first[0], first[1]);
    }
    return;
  }
  if (last - first <= kFew || depth >= kDeepest) {
    std::sort(first, last, precedes);
    return;
  }
  for (Item* item = first; item != last; ++item) {
    item->key = orderingWord(textOf(*item->owner) + depth);
  }
  sortByKeyAndText(first, last, textOf, depth);
}

}  // namespace zaro_addressmatch
