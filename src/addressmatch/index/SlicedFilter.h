// Bloom filters of up to eight sets, bit-sliced: one question tells which of the sets may have a key.
//
// Bloom, "Space/Time Trade-offs in Hash Coding with Allowable Errors", CACM 1970; blocked as in Putze, Sanders,
// Singler, "Cache-, Hash- and Space-Efficient Bloom Filters", WEA 2007; sliced as in Bingmann, Bradley, Gauger, Iqbal,
// "COBS: A Compact Bit-Sliced Signature Index", SPIRE 2019. A block is one cache line of 64 cells, and a cell has a bit
// for each of eight slices. A key sets three cells of a block, in one slice of its set. Eight sets have a slice each;
// four have two, between which the key's hash chooses, and so on up to a single set, which has all eight.
//
//   invariant   every key that was added is reported; of the others about one in a hundred is, so that a call
//               seldom looks into a set for nothing
//   cost        one cache line for adding and for asking, whatever the number of sets
//   memory      16 bits a key, when the sets are equally big; else the biggest set's, for each of them
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "addressmatch/text/Prefetch.h"
#include "addressmatch/text/TextHash.h"

namespace zaro_addressmatch {

class SlicedFilter {
 public:
  static constexpr unsigned int kMostSets = 8;
  // The slice of a set by which answers name it, of so many sets.
  static unsigned int sliceOf(unsigned int set, unsigned int sets) { return set * slicesOf(sets); }
  // The size in bytes.
  static std::size_t sizeFor(unsigned int sets, std::size_t mostKeys) {
    return blocksFor(sets, mostKeys) * sizeof(Block);
  }

  // Empties the filter and sizes it for so many sets, 1 to kMostSets, of up to so many keys each. Throws std::bad_alloc.
  void resize(unsigned int sets, std::size_t mostKeys) {
    constexpr std::uint8_t kEach[] = {0, 0xFF, 0x55, 0, 0x11, 0, 0, 0, 0x01};
    m_slices = slicesOf(sets);
    m_answers = kEach[m_slices];
    m_blocks.assign(blocksFor(sets, mostKeys), Block());
    m_blockCount = m_blocks.size();
  }
  // Adds the hash of a key to a set.
  void add(std::uint64_t hash, unsigned int set) {
    std::uint8_t* cells = m_blocks[blockOf(hash)].cells;
    const auto bit = static_cast<std::uint8_t>(1u << (set * m_slices + sliceWithin(hash)));
    for (const unsigned int shift : kCellShifts) {
      cells[hash >> shift & 63] |= bit;
    }
  }
  // The sets that may have a key, a bit each (`sliceOf`).
  std::uint64_t ask(std::uint64_t hash) const {
    const std::uint8_t* cells = m_blocks.data()[blockOf(hash)].cells;
    const unsigned int all =
        cells[hash >> kCellShifts[0] & 63] & cells[hash >> kCellShifts[1] & 63] & cells[hash >> kCellShifts[2] & 63];
    return all >> sliceWithin(hash) & m_answers;
  }

  void prefetch(std::uint64_t hash) const { prefetchLine(m_blocks.data() + blockOf(hash)); }

 private:
  static constexpr std::size_t kBitsPerKey = 16;
  static constexpr unsigned int kCellShifts[] = {58, 52, 46};
  static constexpr unsigned int kSliceShift = 43;

  struct alignas(64) Block {
    std::uint8_t cells[64] = {};
  };

  // The slices of one of so many sets, a power of two.
  static unsigned int slicesOf(unsigned int sets) { return sets > 4 ? 1 : sets > 2 ? 2 : sets > 1 ? 4 : 8; }
  static std::size_t blocksFor(unsigned int sets, std::size_t mostKeys) {
    return mostKeys * kBitsPerKey / (64 * slicesOf(sets)) + 1;
  }
  unsigned int sliceWithin(std::uint64_t hash) const {
    return static_cast<unsigned int>(hash >> kSliceShift) & (m_slices - 1);
  }
  // The block follows from the low bits of the hash: the high ones choose the slot in a table, and a filter that
  // depends on them too errs together with it.
  std::size_t blockOf(std::uint64_t hash) const { return fastRange(hash << 32, m_blockCount); }

  std::vector<Block> m_blocks = std::vector<Block>(1);
  std::size_t m_blockCount = 1;
  unsigned int m_slices = 8;      // of each set
  unsigned int m_answers = 0x01;  // the first slice of each
};

}  // namespace zaro_addressmatch
