// Arena of a tree's leaves: they lie side by side, each in one cache line, and their memory goes all at once.
//
// Hanson, "Fast Allocation and Deallocation of Memory Based on Object Lifetimes", Software: Practice and Experience 1990.
//
//   invariant   a leaf stays where it is; a cache line holds one leaf (64 bit) or two (32 bit)
//   cost        a leaf takes a pointer increment, and one allocation for 256 of them
//   memory      64 bytes a leaf (32 bit: 32); blocks grow from 4 leaves to 256, so that small trees stay small
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "KxListedEmailAddress.h"

namespace zaro_addressmatch {

// The tree destroys its leaves before it destroys their arena.
class LeafArena {
 public:
  // Makes a leaf; see its constructor. Throws std::bad_alloc (strong guarantee).
  KxListedEmailAddress* make(KxStringtable& table, const KxIndexedString& fullAddress, const KxIndexedString& name,
                             unsigned int concreteLabels) {
    return new (allocate()) KxListedEmailAddress(table, fullAddress, name, concreteLabels);
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
  static_assert(sizeof(KxListedEmailAddress) <= kLeaf, "a leaf fits");

  void* allocate() {
    if (m_left == 0) {
      addBlock();
    }
    void* const memory = m_next;
    m_next += kLeaf;
    --m_left;
    return memory;  // NOLINT(clang-analyzer-cplusplus.NewDelete): `destroy` frees no leaf of an arena
  }
  void addBlock() {
    constexpr std::size_t kFirst = 4;
    constexpr std::size_t kMost = 256;
    const std::size_t count = m_blocks.empty() ? kFirst : std::min(2 * m_count, kMost);
    std::size_t size = (count + 1) * kLeaf;
    std::unique_ptr<unsigned char[]> block(new unsigned char[size]);
    void* begin = block.get();
    m_blocks.push_back(std::move(block));
    m_next = static_cast<unsigned char*>(std::align(kLeaf, count * kLeaf, begin, size));
    m_count = m_left = count;
  }

  std::vector<std::unique_ptr<unsigned char[]>> m_blocks;
  std::size_t m_count = 0;  // leaves of the last block
  std::size_t m_left = 0;   // of them free
  unsigned char* m_next = nullptr;
};

}  // namespace zaro_addressmatch
