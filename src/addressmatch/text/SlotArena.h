// Arena of slots of one size: objects lie side by side in the order of their making, and their memory goes all at once.
//
// Hanson, "Fast Allocation and Deallocation of Memory Based on Object Lifetimes", Software: Practice and Experience 1990.
//
//   invariant   an object stays where it is; a slot begins at a multiple of its size, or of a cache line if that is less
//   cost        a slot takes a pointer increment, and one allocation for 64 KiB of them
//   memory      a slot an object; blocks grow from 4 slots to 64 KiB, so that small arenas stay small
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "addressmatch/text/Memory.h"

namespace zaro_addressmatch {

// Of slots of `kSlot` bytes, a power of two. It destroys no object.
template <std::size_t kSlot>
class SlotArena {
 public:
  // A slot that is not in use; null when memory runs out.
  void* take() {
    if (m_left == 0 && !addBlock()) {
      return nullptr;
    }
    void* const slot = m_next;
    m_next += kSlot;
    --m_left;
    return slot;  // NOLINT(clang-analyzer-cplusplus.NewDelete): what lies in an arena is destroyed, never deleted
  }

 private:
  static constexpr std::size_t kFirst = 4;
  static constexpr std::size_t kMost = 65536 / kSlot;
  static constexpr std::size_t kAlignment = std::min<std::size_t>(kSlot, 64);

  bool addBlock() {
    const std::size_t count = m_blocks.empty() ? kFirst : std::min(2 * m_count, kMost);
    std::size_t size = count * kSlot + kAlignment;
    std::unique_ptr<unsigned char[]> block(new (std::nothrow) unsigned char[size]);
    void* begin = block.get();
    if (block == nullptr || !withinMemory([&] { m_blocks.push_back(std::move(block)); })) {
      return false;
    }
    m_next = static_cast<unsigned char*>(std::align(kAlignment, count * kSlot, begin, size));
    m_count = m_left = count;
    return true;
  }

  std::vector<std::unique_ptr<unsigned char[]>> m_blocks;
  std::size_t m_count = 0;  // slots of the last block
  std::size_t m_left = 0;   // of them free
  unsigned char* m_next = nullptr;
};

}  // namespace zaro_addressmatch
