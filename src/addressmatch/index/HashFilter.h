// A small set of hashes that answers "perhaps" or "no": a Bloom filter whose bits of a key share a word.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "addressmatch/text/Prefetch.h"
#include "addressmatch/text/TextHash.h"

namespace zaro_addressmatch {

class HashFilter {
 public:
  // For so many hashes, none of which is in it yet. Throws std::bad_alloc.
  void resize(std::size_t count) { m_words.assign(count * kBitsEach / 32 + 1, 0); }
  void add(std::uint64_t hash) { m_words[placeOfWord(hash)] |= bitsOf(hash); }
  // True for every hash that was added, and for about one in twenty of the others.
  bool mayHave(std::uint64_t hash) const {
    const std::uint32_t bits = bitsOf(hash);
    return (m_words[placeOfWord(hash)] & bits) == bits;
  }

  void prefetch(std::uint64_t hash) const { prefetchLine(&m_words[placeOfWord(hash)]); }

 private:
  static constexpr std::size_t kBitsEach = 10;

  // Not by the bits of the hash that a place in a table depends on.
  std::size_t placeOfWord(std::uint64_t hash) const { return placeOf(hash << 32, m_words.size()); }
  static std::uint32_t bitsOf(std::uint64_t hash) {
    return std::uint32_t{1} << (hash >> 59) | std::uint32_t{1} << (hash >> 54 & 31);
  }

  std::vector<std::uint32_t> m_words = std::vector<std::uint32_t>(1);
};

}  // namespace zaro_addressmatch
