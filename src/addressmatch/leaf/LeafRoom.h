// Where a tree that is being filled keeps its leaves: side by side, each in one cache line.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

#include "KxListedEmailAddress.h"

namespace zaro_addressmatch {

// Goes with its tree; the leaves have to be destroyed before.
class LeafRoom {
 public:
  // Memory for one leaf. Throws std::bad_alloc, everything then as it was.
  void* take() {
    if (m_left == 0) {
      addBlock();
    }
    void* const room = m_next;
    m_next += kLeaf;
    --m_left;
    return room;
  }

 private:
  static constexpr std::size_t kLeaf = sizeof(void*) == 8 ? 64 : 32;
  static_assert(sizeof(KxListedEmailAddress) <= kLeaf, "a leaf has room");

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
  std::size_t m_left = 0;   // and its free places
  unsigned char* m_next = nullptr;
};

}  // namespace zaro_addressmatch
