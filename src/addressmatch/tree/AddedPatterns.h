// Which addresses the patterns concern that were added to a tree after it had got its index.
//
// The index goes on answering for all other addresses; those that may concern an added pattern are walked. Like a Bloom filter
// it may take an address for one of these without need, and never the other way round.
//
//   invariant   the hash of the domain of every added pattern is in the table: of NAME@DOMAIN and *@DOMAIN that of the domain,
//               of NAME@*.DOMAIN and *@*.DOMAIN its complement
//   cost        adding takes constant time; an address has the hash of its domain and of each suffix looked up
//   memory      8 bytes a domain at a load factor of at most 1/2
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "addressmatch/text/ProbingTable.h"
#include "addressmatch/text/TextHash.h"

namespace zaro_addressmatch {

class AddedPatterns {
 public:
  // What an added pattern is looked up by; 0 for one that may concern any address.
  using Key = std::uint64_t;
  // Of a pattern in lower case.
  static Key keyOf(const char* pattern, std::size_t size);

  // Makes sure of a free slot for `add`. Throws std::bad_alloc (strong guarantee).
  void reserveOne() {
    constexpr std::size_t kFirstSlots = 16;
    if (m_table.isFullAt(kLoadPercent)) {
      m_table.resize(std::max(kFirstSlots, 2 * m_table.slotCount()), homeOf);
    }
  }
  void add(Key key) {
    if (!has(key)) {
      m_table.add({key}, homeOf);
    }
  }
  // False when no added pattern contains the address, which may have capitals. Throws std::bad_alloc.
  bool mayConcern(const char* address) const;

 private:
  static constexpr std::size_t kLoadPercent = 50;

  struct Slot {
    Key key = 0;
    bool isFree() const { return key == 0; }
  };
  static std::size_t homeOf(const Slot& slot, std::size_t slotCount) { return fastRange(slot.key, slotCount); }
  bool has(Key key) const {
    const std::size_t home = homeOf({key}, m_table.slotCount());
    return !m_table[m_table.search(home, [key](const Slot& slot) { return slot.key == key; })].isFree();
  }

  ProbingTable<Slot> m_table;
};

}  // namespace zaro_addressmatch
