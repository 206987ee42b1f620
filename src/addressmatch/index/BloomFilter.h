// Blocked Bloom filter: a small set of hashes that answers "perhaps" or "no".
//
// Bloom, "Space/Time Trade-offs in Hash Coding with Allowable Errors", CACM 1970; blocked as in Putze, Sanders, Singler,
// "Cache-, Hash- and Space-Efficient Bloom Filters", WEA 2007: here a block is one word of 64 bits, and a key sets 3 of them.
//
//   invariant   every hash that was added is reported; of the others about one in a hundred is, so that a call over several
//               trees seldom looks into one for nothing
//   cost        one memory access for adding and for asking; what depends on the hash alone is computed once for all filters
//   memory      16 bits a key
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "addressmatch/text/Prefetch.h"
#include "addressmatch/text/TextHash.h"

namespace zaro_addressmatch {

class BloomFilter {
 public:
  // A hash as every filter asks for it.
  class Key {
   public:
    Key() {}  // uninitialised
    // The word follows from the low bits of the hash: the high ones choose the slot in a table, and a filter that
    // depends on them too errs together with it.
    explicit Key(std::uint64_t hash)
        : m_bits(std::uint64_t{1} << (hash >> 58) | std::uint64_t{1} << (hash >> 52 & 63) |
                 std::uint64_t{1} << (hash >> 46 & 63)),
          m_low(static_cast<std::uint32_t>(hash)) {}

   private:
    friend class BloomFilter;
    std::uint64_t m_bits;
    std::uint32_t m_low;
  };

  // Empties the filter and sizes it for so many hashes. Throws std::bad_alloc.
  void resize(std::size_t count) {
    m_words.assign(count * kBitsPerKey / 64 + 1, 0);
    m_wordCount = m_words.size();
  }
  void add(Key key) { m_words[wordOf(key)] |= key.m_bits; }
  // True for every hash that was added, and for about one in a hundred of the others.
  bool mayContain(Key key) const { return (~m_words.data()[wordOf(key)] & key.m_bits) == 0; }

  void prefetch(Key key) const { prefetchLine(m_words.data() + wordOf(key)); }

 private:
  static constexpr std::size_t kBitsPerKey = 16;

  std::size_t wordOf(Key key) const { return fastRange(std::uint64_t{key.m_low} << 32, m_wordCount); }

  std::vector<std::uint64_t> m_words = std::vector<std::uint64_t>(1);
  std::size_t m_wordCount = 1;
};

}  // namespace zaro_addressmatch
