// Arena of a tree's leaves: each lies in one cache line, and their memory goes all at once (SlotArena).
//
//   memory      64 bytes a leaf (32 bit: 32, two in a cache line)
#pragma once

#include <cstddef>
#include <new>

#include "KxListedEmailAddress.h"
#include "addressmatch/text/SlotArena.h"

namespace zaro_addressmatch {

// The tree destroys its leaves before it destroys their arena.
class LeafArena {
 public:
  // Makes a leaf of a class; see its constructor. Throws std::bad_alloc (strong guarantee).
  template <typename Leaf>
  Leaf* make(KxStringtable& table, const KxIndexedString& fullAddress, const KxIndexedString& name, unsigned int weight) {
    static_assert(sizeof(Leaf) <= kLeaf, "a leaf fits");
    void* const slot = m_slots.take();
    if (slot == nullptr) {
      throw std::bad_alloc();
    }
    return new (slot) Leaf(table, fullAddress, name, weight);
  }
  // Destroys a leaf of an arena or of the heap. Leaves have no virtual destructor: those derived from them add nothing.
  static void destroy(KxListedEmailAddress* leaf) {
    const bool inArena = leaf->_inArena != 0;
    leaf->KxListedEmailAddress::~KxListedEmailAddress();
    if (!inArena) {
      ::operator delete(leaf);
    }
  }

 private:
  static constexpr std::size_t kLeaf = sizeof(void*) == 8 ? 64 : 32;

  SlotArena<kLeaf> m_slots;
};

}  // namespace zaro_addressmatch
