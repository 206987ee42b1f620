// Arena of a table's entries: each lies with its text behind it, in the order of their making, so that texts that are filled
// together lie together.
//
// Hanson, "Fast Allocation and Deallocation of Memory Based on Object Lifetimes", Software: Practice and Experience 1990.
//
//   invariant   an entry and its text stay where they are until the arena goes; zeros fill the text's last word
//   cost        an entry takes a copy of its text, eight bytes at a time, and one allocation for 64 KiB of entries
//   memory      16 bytes and the text, rounded up to whole words with at least one zero; blocks grow from 512 bytes to
//               64 KiB, so that small arenas stay small
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "KxStringtable.h"
#include "addressmatch/text/Swar.h"

namespace zaro_addressmatch {

class TextArena {
 public:
  // Always below kPositions, so that the caller has a bit to spare.
  using Position = std::uint32_t;
  static constexpr Position kPositions = 0x80000000u;

  // Makes an entry of the first `size` characters of a text. Throws std::bad_alloc (strong guarantee).
  Position add(const char* text, std::size_t size) {
    const std::size_t units = unitsFor(size);
    const std::size_t block = blockFor(units);
    std::uint64_t* first = m_blocks[block].units.get() + m_blocks[block].used;
    std::uint64_t* word = first + kEntryUnits;
    (new (first) KxIndexedString(reinterpret_cast<const char*>(word)))->_setIndex(KxIndexedString::TableEntry);
    for (std::size_t offset = 0; offset + 8 <= size; offset += 8) {
      *word++ = load8(text + offset);
    }
    *word = size % 8 != 0 ? lastWord(text, size, size % 8) : 0;  // with zeros up to the next entry
    const auto position = static_cast<Position>(block * kBlockUnits + m_blocks[block].used);
    m_blocks[block].used += units;
    return position;
  }
  KxIndexedString& at(Position position) const {
    return *reinterpret_cast<KxIndexedString*>(m_blocks[position / kBlockUnits].units.get() + position % kBlockUnits);
  }
  // Calls `visit(entry, text)`; the text has zeros behind it up to the next whole word.
  template <typename Visit>
  void forEach(Visit visit) const {
    for (const Block& block : m_blocks) {
      for (std::size_t unit = 0; unit != block.used;) {
        std::uint64_t* first = block.units.get() + unit;
        unit += kEntryUnits;
        const std::uint64_t* text = block.units.get() + unit;
        while (!hasZero(block.units[unit])) {
          ++unit;
        }
        ++unit;
        visit(*reinterpret_cast<KxIndexedString*>(first), reinterpret_cast<const char*>(text));
      }
    }
  }

 private:
  static constexpr std::size_t kFirstUnits = 64;
  static constexpr std::size_t kBlockUnits = 8192;
  // A longer text would waste much of a shared block, and gets a block of its own.
  static constexpr std::size_t kMostUnits = kBlockUnits / 16;

  static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

  struct Block {
    std::unique_ptr<std::uint64_t[]> units;
    std::size_t used;
    std::size_t capacity;
  };

  static constexpr std::size_t kEntryUnits = sizeof(KxIndexedString) / sizeof(std::uint64_t);
  static_assert(sizeof(KxIndexedString) % sizeof(std::uint64_t) == 0, "the text begins with a word");

  static constexpr std::size_t unitsFor(std::size_t size) { return kEntryUnits + size / sizeof(std::uint64_t) + 1; }
  static bool hasZero(std::uint64_t word) { return ((word - everyByte(1)) & ~word & kTopBits) != 0; }
  // Returns a block with so many free units.
  std::size_t blockFor(std::size_t units) {
    const bool shared = units <= kMostUnits;
    if (shared && m_open != kNone && m_blocks[m_open].used + units <= m_blocks[m_open].capacity) {
      return m_open;
    }
    if (m_blocks.size() == kPositions / kBlockUnits) {
      throw std::bad_alloc();
    }
    const std::size_t grown = m_open != kNone ? 2 * m_blocks[m_open].capacity : kFirstUnits;
    const std::size_t capacity = shared ? std::max(units, std::min(grown, kBlockUnits)) : units;
    m_blocks.push_back({std::unique_ptr<std::uint64_t[]>(new std::uint64_t[capacity]), 0, capacity});
    if (shared) {
      m_open = m_blocks.size() - 1;
    }
    return m_blocks.size() - 1;
  }

  std::vector<Block> m_blocks;
  std::size_t m_open = kNone;  // the last one that is shared
};

}  // namespace zaro_addressmatch
