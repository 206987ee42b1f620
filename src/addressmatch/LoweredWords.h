// Texts in lower case, eight characters at a time. Sixteen in a vector were tried: slower, since what follows reads words
// that are then still on their way to memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <emmintrin.h>

namespace zaro_addressmatch {

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the first character of a word is its lowest byte");

inline std::uint64_t load8(const char* from) {
  std::uint64_t word;
  std::memcpy(&word, from, sizeof word);
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

// A bit for every byte of the word, the first one lowest: whether it is `byte`.
inline std::uint64_t bytesEqual(std::uint64_t word, unsigned char byte) {
  const std::uint64_t difference = word ^ everyByte(byte);
  const std::uint64_t different = ((difference & ~kTopBits) + ~kTopBits) | difference;
  return ((~different & kTopBits) >> 7) * 0x0102040810204080u >> 56;
}

// The lowest `size - before` bytes of a word, where `size` is at most 16 and `before` 0 or 8. From a table, since sizes
// of texts make branches that no processor foresees.
inline std::uint64_t bytesWithin(std::uint64_t word, std::size_t size, std::size_t before) {
  constexpr std::uint64_t kOnes = ~std::uint64_t{0};
  static constexpr std::uint64_t kMasks[] = {
      0,           0,           0,           0,           0,           0,           0,           0,     0,
      kOnes >> 56, kOnes >> 48, kOnes >> 40, kOnes >> 32, kOnes >> 24, kOnes >> 16, kOnes >> 8,  kOnes, kOnes,
      kOnes,       kOnes,       kOnes,       kOnes,       kOnes,       kOnes,       kOnes};
  return word & kMasks[size + 8 - before];
}

// The eight bytes from `offset` on of a text in words. Put together from whole words, which the processor may still have
// on their way to memory.
inline std::uint64_t wordAt(const std::uint64_t* words, std::size_t offset) {
  const std::uint64_t* word = words + offset / 8;
  const unsigned int shift = offset % 8 * 8;
  return word[0] >> shift | (word[1] << 1) << (63 - shift);
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

inline Marks marksOf(const char* text, std::size_t size) {
  Marks marks;
  const auto mark = [](__m128i block, char character) {
    return static_cast<std::uint64_t>(
        static_cast<unsigned int>(_mm_movemask_epi8(_mm_cmpeq_epi8(block, _mm_set1_epi8(character)))));
  };
  std::size_t offset = 0;
  for (; offset + 16 <= size; offset += 16) {
    const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text + offset));
    marks.ats |= mark(block, '@') << offset;
    marks.dots |= mark(block, '.') << offset;
  }
  if (offset != size) {
    const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text + size - 16));
    marks.ats |= mark(block, '@') << (size - 16);
    marks.dots |= mark(block, '.') << (size - 16);
  }
  return marks;
}

// Writes a text in lower case. Reads nothing outside the text. The marks are right for texts up to 64 characters.
inline Marks lower(const char* text, std::size_t size, std::uint64_t* words) {
  Marks marks;
  std::size_t offset = 0;
  const auto take = [&](std::uint64_t word) {
    words[offset / 8] = word;
    offset += 8;
  };
  while (offset + 8 <= size) {
    take(loweredWord(load8(text + offset)));
  }
  std::uint64_t last = 0;
  if (size >= 8) {
    last = size % 8 != 0 ? load8(text + size - 8) >> (8 - size % 8) * 8 : 0;
  } else {
    std::memcpy(&last, text, size);
  }
  take(loweredWord(last));
  std::memset(words + offset / 8, 0, kPadding);
  if (size >= 16) {
    return marksOf(text, size);
  }
  for (std::size_t i = 0; i < size; i += 8) {
    marks.ats |= bytesEqual(words[i / 8], '@') << i;
    marks.dots |= bytesEqual(words[i / 8], '.') << i;
  }
  return marks;
}

}  // namespace zaro_addressmatch
