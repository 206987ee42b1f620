// Blocked Bloom filter: a small set of hashes that answers "perhaps" or "no".
//
// Bloom, "Space/Time Trade-offs in Hash Coding with Allowable Errors", CACM 1970; blocked as in Putze, Sanders, Singler,
// "Cache-, Hash- and Space-Efficient Bloom Filters", WEA 2007: here a block is one word of 32 bits, and a key sets 2 of them.
//
//   invariant   every hash that was added is reported; of the others about one in twenty is
//   cost        one memory access for adding and for asking
//   memory      10 bits a key
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "addressmatch/text/Prefetch.h"
#include "addressmatch/text/TextHash.h"

namespace zaro_addressmatch {

class BloomFilter {
 public:
  // Empties the filter and sizes it for so many hashes. Throws std::bad_alloc.
  void resize(std::size_t count) { m_words.assign(count * kBitsPerKey / 32 + 1, 0); }
  void add(std::uint64_t hash) { m_words[wordOf(hash)] |= bitsOf(hash); }
  // True for every hash that was added, and for about one in twenty of the others.
  bool mayContain(std::uint64_t hash) const {
    const std::uint32_t bits = bitsOf(hash);
    return (m_words[wordOf(hash)] & bits) == bits;
  }

  void prefetch(std::uint64_t hash) const { prefetchLine(&m_words[wordOf(hash)]); }

 private:
  static constexpr std::size_t kBitsPerKey = 10;

  // From the low bits of the hash: the high ones choose the slot in a table, and a filter that depends on them too errs
  // together with it.
  std::size_t wordOf(std::uint64_t hash) const { return fastRange(hash << 32, m_words.size()); }
  static std::uint32_t bitsOf(std::uint64_t hash) {
    return std::uint32_t{1} << (hash >> 59) | std::uint32_t{1} << (hash >> 54 & 31);
  }

  std::vector<std::uint32_t> m_words = std::vector<std::uint32_t>(1);
};

}  // namespace zaro_addressmatch
