// Hash table with linear probing.
//
// Knuth, "The Art of Computer Programming", volume 3, 1998, section 6.4: algorithm L for searching, R for removing.
//
//   invariant   between a key's home and its slot no slot is free, so that a search may end at the first free one;
//               at least one slot is free
//   cost        one or two adjacent cache lines for a search, as long as the load factor stays well below 1
//   memory      a slot divided by the load factor, which doubling halves
//
// The table knows neither keys nor hashes: its user says where a slot's key is at home, and which slot it looks for.
#pragma once

#include <cstddef>
#include <utility>
#include <vector>

namespace zaro_addressmatch {

// `Slot()` is a free slot, and `isFree()` says so. `homeOf(slot, slotCount)` below is the home of a used slot's key.
template <typename Slot>
class ProbingTable {
 public:
  std::size_t slotCount() const { return m_slots.size(); }
  std::size_t used() const { return m_used; }
  const Slot* data() const { return m_slots.data(); }
  const Slot& operator[](std::size_t slot) const { return m_slots[slot]; }
  typename std::vector<Slot>::const_iterator begin() const { return m_slots.begin(); }
  typename std::vector<Slot>::const_iterator end() const { return m_slots.end(); }

  // Whether one more key would bring the load factor above a percentage.
  bool isFullAt(std::size_t percent) const { return (m_used + 1) * 100 > m_slots.size() * percent; }

  // The first slot from `home` on that `matches`, or the free one where the search ends. The table has slots.
  template <typename Matches>
  std::size_t search(std::size_t home, Matches matches) const {
    std::size_t slot = home;
    while (!m_slots[slot].isFree() && !matches(m_slots[slot])) {
      slot = next(slot);
    }
    return slot;
  }

  // Uses a free slot that a search ended at.
  void put(std::size_t slot, const Slot& content) {
    m_slots[slot] = content;
    ++m_used;
  }
  // Adds a key that the table does not have. A slot is free.
  template <typename HomeOf>
  void add(const Slot& content, HomeOf homeOf) {
    put(search(homeOf(content, m_slots.size()), [](const Slot& /*used*/) { return false; }), content);
  }

  // Removes the key of a slot, and moves keys behind it nearer to their homes where the gap would hide them.
  template <typename HomeOf>
  void remove(std::size_t gap, HomeOf homeOf) {
    const auto distance = [this](std::size_t from, std::size_t to) {
      return to >= from ? to - from : to + m_slots.size() - from;
    };
    for (std::size_t slot = next(gap); !m_slots[slot].isFree(); slot = next(slot)) {
      if (distance(homeOf(m_slots[slot], m_slots.size()), slot) >= distance(gap, slot)) {
        m_slots[gap] = m_slots[slot];
        gap = slot;
      }
    }
    m_slots[gap] = Slot();
    --m_used;
  }

  // Gives the table another number of slots, more than it has keys. Throws std::bad_alloc (strong guarantee).
  template <typename HomeOf>
  void resize(std::size_t slots, HomeOf homeOf) {
    ProbingTable other;
    other.m_slots.resize(slots);
    for (const Slot& slot : m_slots) {
      if (!slot.isFree()) {
        other.add(slot, homeOf);
      }
    }
    *this = std::move(other);
  }

 private:
  std::size_t next(std::size_t slot) const { return slot + 1 != m_slots.size() ? slot + 1 : 0; }

  std::vector<Slot> m_slots;
  std::size_t m_used = 0;
};

}  // namespace zaro_addressmatch
