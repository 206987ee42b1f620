// Eight characters at a time.
#pragma once

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

}  // namespace zaro_addressmatch
