// The levels of a tree that is being filled, by domain: the way down takes many cache misses, and patterns of one
// domain come in any order.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "KxWildcardNode.h"
#include "addressmatch/text/Prefetch.h"
#include "addressmatch/text/Swar.h"
#include "addressmatch/text/TextHash.h"

namespace zaro_addressmatch {

// What a domain is kept by; none for one that is too long to be kept.
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
 public:
  // Has the processor fetch what `find` begins with.
  void prefetch(const DomainKey& key) const {
    if (!m_slots.empty()) {
      prefetchLine(&m_slots[homeOf(key)]);
    }
  }
  // The level of a domain, or null.
  KxWildcardNode* find(const DomainKey& key) const {
    if (m_slots.empty()) {
      return nullptr;
    }
    std::size_t place = homeOf(key);
    while (m_slots[place].node != nullptr && !(m_slots[place].key == key)) {
      place = next(place);
    }
    return m_slots[place].node;
  }
  // To be called before a level is added. Throws std::bad_alloc, everything then as it was.
  void makeRoom() {
    constexpr std::size_t kFirstSlots = 64;
    if (3 * (m_count + 1) > 2 * m_slots.size()) {
      std::vector<Slot> slots(m_slots.empty() ? kFirstSlots : 2 * m_slots.size());
      slots.swap(m_slots);
      for (const Slot& slot : slots) {
        if (slot.node != nullptr) {
          take(slot);
        }
      }
    }
  }
  void add(const DomainKey& key, KxWildcardNode* node) {
    take({node, key});
    ++m_count;
  }

 private:
  struct Slot {
    Slot() : node(nullptr) {}
    Slot(KxWildcardNode* ofNode, const DomainKey& ofKey) : node(ofNode), key(ofKey) {}
    KxWildcardNode* node;  // null: free
    DomainKey key;
  };

  std::size_t homeOf(const DomainKey& key) const {
    const HashSeed& seed = m_seed;
    const std::uint64_t state = mixed(key.m_words[0] ^ seed.words[0], key.m_words[1] ^ seed.words[1]);
    return placeOf(mixed(state, key.m_words[2] ^ seed.words[2]), m_slots.size());
  }
  std::size_t next(std::size_t place) const { return place + 1 != m_slots.size() ? place + 1 : 0; }
  void take(const Slot& slot) {
    std::size_t place = homeOf(slot.key);
    while (m_slots[place].node != nullptr) {
      place = next(place);
    }
    m_slots[place] = slot;
  }

  HashSeed m_seed = processHashSeed();
  std::size_t m_count = 0;
  std::vector<Slot> m_slots;
};

}  // namespace zaro_addressmatch
