// The levels of a tree that is being filled, by domain: patterns of one domain come in any order, and the way down the
// levels would take a cache miss for each label.
//
//   invariant   while a tree has only whole patterns (TreeState), every level whose domain has a key is in the map
//   cost        one cache line
//   memory      32 bytes a slot at a load factor of at most 2/3; given back at the freeze
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

#include "KxWildcardNode.h"
#include "addressmatch/text/Prefetch.h"
#include "addressmatch/text/ProbingTable.h"
#include "addressmatch/text/Swar.h"
#include "addressmatch/text/TextHash.h"

namespace zaro_addressmatch {

// The text of a domain of up to 24 characters, in words. A longer one has no key.
class DomainKey {
 public:
  DomainKey() : m_words() {}
  // Of a domain that begins at a byte of a text in words and ends with it.
  DomainKey(const std::uint64_t* words, std::size_t begin, std::size_t size) : DomainKey() {
    if (size <= sizeof m_words) {
      for (std::size_t word = 0; word != m_words.size(); ++word) {
        m_words[word] = wordAt(words, begin + 8 * word);
      }
    }
  }
  bool isThere() const { return m_words[0] != 0; }
  // The number of labels.
  unsigned int labelCount() const {
    unsigned int dots = 0;
    for (const std::uint64_t word : m_words) {
      dots += countBytes(word, '.');
    }
    return dots + 1;
  }
  bool operator==(const DomainKey& other) const {
    return ((m_words[0] ^ other.m_words[0]) | (m_words[1] ^ other.m_words[1]) | (m_words[2] ^ other.m_words[2])) == 0;
  }

 private:
  friend class DomainMap;
  std::array<std::uint64_t, 3> m_words;  // zeros behind the text
};

class DomainMap {
 private:
  static constexpr std::size_t kLoadPercent = 66;

  struct Slot {
    Slot() : node(nullptr) {}
    Slot(KxWildcardNode* ofNode, const DomainKey& ofKey) : node(ofNode), key(ofKey) {}
    bool isFree() const { return node == nullptr; }
    KxWildcardNode* node;
    DomainKey key;
  };

  std::size_t homeOf(const DomainKey& key, std::size_t slotCount) const {
    const std::uint64_t state = mixed(key.m_words[0] ^ m_seed.words[0], key.m_words[1] ^ m_seed.words[1]);
    return fastRange(mixed(state, key.m_words[2] ^ m_seed.words[2]), slotCount);
  }
  auto home() const {
    return [this](const Slot& slot, std::size_t slotCount) { return homeOf(slot.key, slotCount); };
  }

 public:
  // Prefetches the slot where `find` begins.
  void prefetch(const DomainKey& key) const {
    if (m_table.slotCount() != 0) {
      prefetchLine(&m_table[homeOf(key, m_table.slotCount())]);
    }
  }
  // The level of a domain, or null.
  KxWildcardNode* find(const DomainKey& key) const {
    if (m_table.slotCount() == 0) {
      return nullptr;
    }
    const std::size_t home = homeOf(key, m_table.slotCount());
    return m_table[m_table.search(home, [&key](const Slot& slot) { return slot.key == key; })].node;
  }
  // Makes sure of a free slot for `add`. Throws std::bad_alloc (strong guarantee).
  void reserveOne() {
    constexpr std::size_t kFirstSlots = 64;
    if (m_table.isFullAt(kLoadPercent)) {
      m_table.resize(std::max(kFirstSlots, 2 * m_table.slotCount()), home());
    }
  }
  void add(const DomainKey& key, KxWildcardNode* node) { m_table.add({node, key}, home()); }

 private:
  HashSeed m_seed = processHashSeed();
  ProbingTable<Slot> m_table;
};

}  // namespace zaro_addressmatch
