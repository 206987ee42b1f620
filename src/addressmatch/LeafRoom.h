// Where a tree that is being filled keeps its leaves: side by side, each in one cache line.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <new>
#include <vector>

#include "KxListedEmailAddress.h"

namespace zaro_addressmatch {

// Goes with its tree; the leaves have to be destroyed before.
class LeafRoom {
 public:
  // Memory for one leaf. Throws std::bad_alloc, everything then as it was.
  void* take() {
    if (m_left == 0) {
      constexpr std::size_t kFirst = 4;
      constexpr std::size_t kMost = 256;
      const std::size_t count = m_blocks.empty() ? kFirst : std::min(2 * m_blockSize, kMost);
      m_blocks.push_back(std::make_unique<Leaf[]>(count));
      m_blockSize = count;
      m_left = count;
    }
    return &m_blocks.back()[m_blockSize - m_left--];
  }

 private:
  static constexpr std::size_t kSize = sizeof(void*) == 8 ? 64 : 32;
  struct alignas(kSize) Leaf {
    Leaf() {}  // leaves the memory as it is
    unsigned char bytes[kSize];
  };
  static_assert(sizeof(KxListedEmailAddress) <= kSize, "a leaf has room");

  std::vector<std::unique_ptr<Leaf[]>> m_blocks;
  std::size_t m_blockSize = 0;  // of the last one
  std::size_t m_left = 0;       // in it
};

}  // namespace zaro_addressmatch
