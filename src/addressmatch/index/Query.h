// An address as the indexes ask for it: in lower case, split, its pieces hashed. All indexes of one seed share it, so
// that a call over several trees does this once.
//
//   invariant   every suffix that any of the indexes may have something below is hashed, the shortest first
//   cost        a multiplication for 16 characters of each piece; no branch depends on a character
//   memory      none of the heap for an address below 64 characters; a longer one takes one piece of it
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <type_traits>

#include "addressmatch/text/Swar.h"
#include "addressmatch/text/TextHash.h"

namespace zaro_addressmatch {

// Hashes of keys that are not just a text.
constexpr std::uint64_t kNoDomainHash = 0;
// Of a local part at or below a domain.
inline std::uint64_t nameHashAt(const HashSeed& seed, std::uint64_t nameHash, std::uint64_t domainHash) {
  return mixed(nameHash ^ seed.words[1], domainHash ^ seed.words[3]);
}
// Of any local part at a domain.
constexpr std::uint64_t anyNameHash(std::uint64_t domainHash) {
  return ~domainHash;
}

// Identifies a leaf: a local part and the domain it stands at. In words, so that three comparisons suffice.
struct NameKey {
  static constexpr bool kWide = sizeof(void*) == 8;
  // The most characters that a key holds.
  static constexpr std::size_t kInline = kWide ? 19 : 15;

  // From the lowest bit on: number of the domain, 0 for none, in 32 bits; size of the local part, or kLong for that or more,
  // in 5; what a slot notes, in 3; its first 3 characters. Zeros behind the last one, here and in the other words.
  std::uint64_t head;
  std::uint64_t middle;                                          // the next 8
  std::conditional_t<kWide, std::uint64_t, std::uint32_t> tail;  // and the rest, up to kInline

  // Of a local part's first three words, zeros behind its end.
  static NameKey of(const std::uint64_t (&words)[3], std::size_t size) {
    // Three bytes in the head, eight in the middle.
    return {std::uint64_t{std::min(size, kLong)} << 32 | words[0] << 40, words[0] >> 24 | words[1] << 40,
            static_cast<decltype(tail)>(words[1] >> 24 | words[2] << 40)};
  }
  NameKey at(std::uint32_t number) const { return {head | number, middle, tail}; }
  NameKey noting(unsigned int note) const { return {head | std::uint64_t{note} << kNoteShift, middle, tail}; }
  unsigned int note() const { return static_cast<unsigned int>(head >> kNoteShift & kNotes); }
  // Whatever they note.
  bool isSame(const NameKey& other) const {
    return (((head ^ other.head) & ~(kNotes << kNoteShift)) | (middle ^ other.middle) | (tail ^ other.tail)) == 0;
  }

 private:
  static constexpr std::size_t kLong = 31;
  static constexpr unsigned int kNoteShift = 37;
  static constexpr std::uint64_t kNotes = 7;
};

// Its pieces are public for the indexes; a search does not change it.
struct Query {
  // Addresses below this size are split without an allocation.
  static constexpr std::size_t kShort = 64;
  // Of the suffixes that are hashed at once. A short address has no more.
  static constexpr std::size_t kMostLabels = 64;

  // The end of a domain, from a label on.
  struct Suffix {
    std::uint64_t hash;
    std::size_t begin;
    unsigned int labelCount;
  };

  const std::uint64_t* words;  // the text in lower case
  std::size_t size;
  std::size_t at;  // position of the "@"
  // A text without "@" that has a dot, which then separates no labels.
  bool isDotted;
  NameKey key;  // without the domain's number
  std::uint64_t nameHash;
  std::uint64_t domainHash;
  std::uint64_t fullHash;       // of the name at the domain
  std::uint64_t belowRootHash;  // of the name below the root
  std::uint64_t domain[3];      // its first words
  unsigned int labelCount;      // of the domain
  std::size_t suffixCount;
  Suffix suffixes[kMostLabels];

  Query() {}  // leaves most members uninitialised: `split` writes those that are read

  const char* text() const { return reinterpret_cast<const char*>(words); }
  std::size_t domainSize() const { return size - at - 1; }
  bool isShort() const { return size < kShort; }
  // Position of the last dot of the domain before `end`, or 0.
  std::size_t lastDotBefore(std::size_t end) const {
    while (--end != at && text()[end] != '.') {
    }
    return end != at ? end : 0;
  }

  // Splits and hashes an address; null is none (false). `depths` has a bit for each number of labels, from 1 on, of
  // which a suffix may matter. Throws std::bad_alloc.
  bool split(const HashSeed& seed, const char* address, std::uint64_t depths);

 private:
  // These return the dots of the domain, a bit for each of the first positions.
  std::uint64_t splitLong(const char* address);
  std::uint64_t splitBare(const char* address);
  std::uint64_t takeLowered(std::uint64_t* room, const char* text);
  std::uint64_t* roomFor(std::size_t textSize);

  std::uint64_t m_room[wordsFor(kShort)];
  std::unique_ptr<std::uint64_t[]> m_long;
};

}  // namespace zaro_addressmatch
