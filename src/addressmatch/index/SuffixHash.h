// Hashes of the domains that an index holds, and of the suffixes of an address.
//
// A suffix of up to 64 bytes is hashed from its beginning (TextHash); those of an address that is not longer itself are
// hashed in Query.cpp, to the same values. A longer suffix is hashed from its end, in the same way, so that one pass gives
// the hashes of all suffixes: a sender may ask for a domain of as many labels as a text can have.
//
//   invariant   the hash of a domain is that of the equal suffix of any address
//   cost        one multiplication for 16 bytes of the longest suffix, and one for each suffix beyond 64 bytes; at most four
//               for each of the others
#pragma once

#include <cstddef>
#include <cstdint>

#include "addressmatch/text/Swar.h"
#include "addressmatch/text/TextHash.h"

namespace zaro_addressmatch {

// The hashes of the suffixes of one text.
class SuffixHash {
 public:
  SuffixHash(const HashSeed& seed, const char* text, std::size_t size)
      : m_seed(seed), m_text(text), m_size(size), m_begin(size), m_state(seed.words[0]) {}

  // The hash of the suffix from a byte on. Longer suffixes come after shorter ones.
  std::uint64_t from(std::size_t begin) {
    const std::size_t size = m_size - begin;
    if (size <= kFromBeginning) {
      return hashText(m_seed, m_text + begin, size);
    }
    for (; m_begin - begin > 16; m_begin -= 16) {
      m_state = mixed(load8(m_text + m_begin - 16) ^ m_state, load8(m_text + m_begin - 8) ^ m_seed.words[1]);
    }
    const std::size_t rest = m_begin - begin;
    return hashLast(m_seed, m_state, bytesWithin(load8(m_text + begin), rest, 0),
                    bytesWithin(load8(m_text + begin + 8), rest, 8), size);
  }

 private:
  static constexpr std::size_t kFromBeginning = 64;

  const HashSeed& m_seed;
  const char* m_text;
  std::size_t m_size;
  std::size_t m_begin;  // what lies from here on is hashed
  std::uint64_t m_state;
};

}  // namespace zaro_addressmatch
