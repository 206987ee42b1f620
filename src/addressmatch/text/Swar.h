// SWAR (SIMD within a register): texts in lower case, searched and cut eight characters at a time.
//
// Lamport, "Multiple Byte Processing with Full-Word Instructions", CACM 1975; Warren, "Hacker's Delight", 2002. Only the
// letters A to Z have a case, as RFC 4343, "Domain Name System (DNS) Case Insensitivity Clarification", 2006, has it.
//
//   invariant   a text in words ends with at least one zero byte, and `kPadding` zero bytes follow its last word, so that
//               whole words can be read from any byte of the text; nothing outside the source text is ever read
//   cost        some ten instructions for eight characters; no branch depends on a character
//
// Writing sixteen bytes at once is slower: the reads that follow would have to wait for the write to reach memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace zaro_addressmatch {

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the first character of a word is its lowest byte");

inline std::uint64_t load8(const char* from) {
  std::uint64_t word;
  std::memcpy(&word, from, sizeof word);
  return word;
}

// The last `rest` bytes of a text as a word, zeros behind them; 1 to 7, and no more than the text has. Reads nothing
// outside the text.
inline std::uint64_t lastWord(const char* text, std::size_t size, std::size_t rest) {
  if (size >= 8) {
    return load8(text + size - 8) >> (8 - rest) * 8;
  }
  std::uint64_t word = 0;
  std::memcpy(&word, text + size - rest, rest);
  return word;
}

constexpr std::uint64_t everyByte(unsigned char byte) {
  return byte * 0x0101010101010101u;
}

constexpr std::uint64_t kTopBits = everyByte(0x80);

// The word with its capitals A to Z made small.
inline std::uint64_t loweredWord(std::uint64_t word) {
  const std::uint64_t low = word & ~kTopBits;
  const std::uint64_t fromA = low + everyByte(0x80 - 'A');
  const std::uint64_t afterZ = low + everyByte(0x7F - 'Z');
  const std::uint64_t capitals = (fromA ^ afterZ) & ~word & kTopBits;
  return word | capitals >> 2;
}

// The lowest bit of every byte of the word that is `byte`.
inline std::uint64_t equalBytes(std::uint64_t word, unsigned char byte) {
  const std::uint64_t difference = word ^ everyByte(byte);
  const std::uint64_t different = ((difference & ~kTopBits) + ~kTopBits) | difference;
  return (~different & kTopBits) >> 7;
}

// A bit for every byte of the word, the first one lowest: whether it is `byte`.
inline std::uint64_t bytesEqual(std::uint64_t word, unsigned char byte) {
  return equalBytes(word, byte) * 0x0102040810204080u >> 56;
}

// How many bytes of the word are `byte`.
inline unsigned int countBytes(std::uint64_t word, unsigned char byte) {
  return static_cast<unsigned int>(equalBytes(word, byte) * everyByte(1) >> 56);
}

// The lowest `size - before` bytes of a word, where `size` is at most 16 and `before` 0 or 8. From a table, because
// branches on the sizes of texts are mispredicted.
inline std::uint64_t bytesWithin(std::uint64_t word, std::size_t size, std::size_t before) {
  constexpr std::uint64_t kOnes = ~std::uint64_t{0};
  static constexpr std::uint64_t kMasks[] = {
      0,           0,           0,           0,           0,           0,           0,          0,     0,
      kOnes >> 56, kOnes >> 48, kOnes >> 40, kOnes >> 32, kOnes >> 24, kOnes >> 16, kOnes >> 8, kOnes, kOnes,
      kOnes,       kOnes,       kOnes,       kOnes,       kOnes,       kOnes,       kOnes};
  return word & kMasks[size + 8 - before];
}

// The eight bytes from `offset` on of a text in words. Combined from whole words: a read across two words that have
// just been written would wait until both are in memory.
inline std::uint64_t wordAt(const std::uint64_t* words, std::size_t offset) {
  const std::uint64_t* word = words + offset / 8;
  const unsigned int shift = offset % 8 * 8;
  return word[0] >> shift | (word[1] << 1) << (63 - shift);
}

// The 32 bytes from `offset` on, in the same way.
inline void fourWordsAt(const std::uint64_t* words, std::size_t offset, std::uint64_t (&four)[4]) {
  const std::uint64_t* word = words + offset / 8;
  const unsigned int shift = offset % 8 * 8;
  const unsigned int rest = 63 - shift;
  four[0] = word[0] >> shift | (word[1] << 1) << rest;
  four[1] = word[1] >> shift | (word[2] << 1) << rest;
  four[2] = word[2] >> shift | (word[3] << 1) << rest;
  four[3] = word[3] >> shift | (word[4] << 1) << rest;
}

// Where a text has these characters; the first character is the lowest bit.
struct Marks {
  std::uint64_t ats = 0;
  std::uint64_t dots = 0;
};

// Texts in words have so many zeros behind them, at least.
constexpr std::size_t kPadding = 32;

// The number of words that a text takes.
constexpr std::size_t wordsFor(std::size_t size) {
  return size / 8 + 1 + kPadding / 8;
}

// Writes a text in lower case. Reads nothing outside the text.
inline void lower(const char* text, std::size_t size, std::uint64_t* words) {
  std::uint64_t* word = words;
  for (std::size_t offset = 0; offset + 8 <= size; offset += 8) {
    *word++ = loweredWord(load8(text + offset));
  }
  const std::uint64_t last = size % 8 != 0 ? lastWord(text, size, size % 8) : 0;
  *word++ = loweredWord(last);
  std::memset(word, 0, kPadding);
}

// The marks of a text of up to 64 characters in words.
inline Marks marksOfWords(const std::uint64_t* words, std::size_t size) {
  Marks marks;
  for (std::size_t offset = 0; offset < size; offset += 8) {
    marks.ats |= bytesEqual(words[offset / 8], '@') << offset;
    marks.dots |= bytesEqual(words[offset / 8], '.') << offset;
  }
  return marks;
}

#if defined(__SSE2__) && defined(__SIZEOF_INT128__)
// Writes a text of 16 to 63 characters in lower case, and tells its marks; sixteen characters at a time. Every word is
// written whole, so that the reads that follow need not wait for two writes.
__attribute__((always_inline)) inline Marks lowerBlocks(const char* text, std::size_t size, std::uint64_t* words) {
  typedef signed char Block __attribute__((vector_size(16)));
  typedef char Characters __attribute__((vector_size(16)));
  typedef std::uint64_t Halves __attribute__((vector_size(16)));
  __extension__ typedef unsigned __int128 Wide;
  Marks marks;
  const auto lowered = [&marks, text](std::size_t offset) {
    Block block;
    std::memcpy(&block, text + offset, sizeof block);
    const auto equal = [&block](signed char character) {
      return static_cast<unsigned int>(__builtin_ia32_pmovmskb128(reinterpret_cast<Characters>(block == character)));
    };
    marks.ats |= std::uint64_t{equal('@')} << offset;
    marks.dots |= std::uint64_t{equal('.')} << offset;
    return block | ((block >= 'A') & (block <= 'Z') & 0x20);
  };
  std::size_t offset = 0;
  for (; offset + 16 < size; offset += 16) {
    const Block block = lowered(offset);
    std::memcpy(words + offset / 8, &block, sizeof block);
  }
  // The rest of the text is the end of its last sixteen characters.
  const auto last = reinterpret_cast<Halves>(lowered(size - 16));
  const Wide rest = (static_cast<Wide>(last[1]) << 64 | last[0]) >> (offset + 16 - size) * 8;
  words[offset / 8] = static_cast<std::uint64_t>(rest);
  words[offset / 8 + 1] = static_cast<std::uint64_t>(rest >> 64);
  words[offset / 8 + 2] = 0;
  std::memset(words + size / 8 + 1, 0, kPadding);
  return marks;
}
#endif

// Writes a text of up to 63 characters in lower case, and tells its marks.
inline Marks lowerMarked(const char* text, std::size_t size, std::uint64_t* words) {
#if defined(__SSE2__) && defined(__SIZEOF_INT128__)
  if (size >= 16) {
    return lowerBlocks(text, size, words);
  }
#endif
  lower(text, size, words);
  return marksOfWords(words, size);
}

}  // namespace zaro_addressmatch
