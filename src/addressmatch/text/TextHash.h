// Keyed hash of short texts, by folded multiplication.
//
// Two words of the text, each combined with a word of the seed, are multiplied to twice their width, and the halves of
// the product are folded together; NH multiplies in the same way (Black, Halevi, Krawczyk, Krovetz, Rogaway, "UMAC:
// Fast and Secure Message Authentication", CRYPTO 1999). It is keyed because the senders of mail choose the addresses,
// and could otherwise choose colliding ones: Crosby, Wallach, "Denial of Service via Algorithmic Complexity Attacks",
// USENIX Security 2003.
//
//   invariant   the hash depends on the bytes, the size and the seed alone, however the text is handed over
//   cost        one multiplication for 16 bytes
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "addressmatch/text/Swar.h"

namespace zaro_addressmatch {

struct HashSeed {
  std::uint64_t words[4];
};

// This process's own seed, drawn at random once.
const HashSeed& processHashSeed();

// Both halves of the product, folded: every bit of the answer depends on every bit of the factors.
inline std::uint64_t mixed(std::uint64_t one, std::uint64_t other) {
#ifdef __SIZEOF_INT128__
  __extension__ typedef unsigned __int128 Product;
  const Product product = static_cast<Product>(one) * other;
  return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
#else
  const std::uint64_t low = static_cast<std::uint32_t>(one);
  const std::uint64_t high = one >> 32;
  const std::uint64_t otherLow = static_cast<std::uint32_t>(other);
  const std::uint64_t otherHigh = other >> 32;
  const std::uint64_t lowest = low * otherLow;
  const std::uint64_t middle = high * otherLow + (lowest >> 32);
  const std::uint64_t middle2 = low * otherHigh + static_cast<std::uint32_t>(middle);
  const std::uint64_t upper = high * otherHigh + (middle >> 32) + (middle2 >> 32);
  return ((middle2 << 32) | static_cast<std::uint32_t>(lowest)) ^ upper;
#endif
}

// The last step of a hash: the last two words of a text of `size` bytes, with zeros behind its end.
inline std::uint64_t hashLast(const HashSeed& seed, std::uint64_t state, std::uint64_t first, std::uint64_t second,
                              std::size_t size) {
  constexpr std::uint64_t kOdd = 0x9E3779B97F4A7C15u;
  return mixed(first ^ state, second ^ (seed.words[2] + size * kOdd));
}

// Hash of a text of `size` bytes that `wordAt(offset)` gives eight at a time, with zeros behind its end.
template <typename WordAt>
std::uint64_t hashWords(const HashSeed& seed, std::size_t size, WordAt wordAt) {
  std::uint64_t state = seed.words[0];
  std::size_t offset = 0;
  for (; size - offset > 16; offset += 16) {
    state = mixed(wordAt(offset) ^ state, wordAt(offset + 8) ^ seed.words[1]);
  }
  return hashLast(seed, state, wordAt(offset), wordAt(offset + 8), size);
}

// Hash of a text that ends anywhere.
inline std::uint64_t hashText(const HashSeed& seed, const char* text, std::size_t size) {
  return hashWords(seed, size, [text, size](std::size_t offset) {
    return offset + 8 <= size ? load8(text + offset) : offset < size ? lastWord(text, size, size - offset) : 0;
  });
}

// Hash of the first `size` bytes of a text in words.
inline std::uint64_t hashOfWords(const HashSeed& seed, const std::uint64_t* words, std::size_t size) {
  return hashWords(seed, size, [words, size](std::size_t offset) {
    return bytesWithin(words[offset / 8], offset < size ? std::min<std::size_t>(size - offset, 8) : 0, 0);
  });
}

// A number below `count`, which is below 2^32, from the high half of a hash: a multiplication in the place of a
// division (Lemire, "Fast Random Integer Generation in an Interval", ACM TOMACS 2019).
inline std::size_t fastRange(std::uint64_t hash, std::size_t count) {
  return static_cast<std::size_t>((hash >> 32) * count >> 32);
}

}  // namespace zaro_addressmatch
