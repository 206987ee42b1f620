// Eight characters at a time.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zaro_addressmatch {

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the first character of a word is its lowest byte");

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

// The lowest `size - before` bytes of a word, where `size` is at most 16 and `before` 0 or 8: as a table, since sizes of
// texts make branches that no processor foresees.
inline std::uint64_t bytesWithin(std::uint64_t word, std::size_t size, std::size_t before) {
  static constexpr std::uint64_t kOnes = ~std::uint64_t{0};
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

}  // namespace zaro_addressmatch
