// Insertion into a vector that is sorted by name.
#pragma once

#include <cstddef>
#include <vector>

#include "addressmatch/text/Memory.h"

namespace zaro_addressmatch {

// The position after the last element that is not greater: an upper bound by binary search.
template <typename Named>
unsigned int insertPosition(const std::vector<Named*>& sorted, const Named* item) {
  if (sorted.empty()) {
    return 0;
  }
  std::size_t low = 0;
  std::size_t high = sorted.size() - 1;
  for (;;) {
    const std::size_t middle = (low + high) / 2;
    if (item->getName() < sorted[middle]->getName()) {
      if (low >= middle) {
        return static_cast<unsigned int>(low);
      }
      high = middle - 1;
    } else {
      if (high <= middle) {
        return static_cast<unsigned int>(high + 1);
      }
      low = middle + 1;
    }
  }
}

// False for null and when memory runs out.
template <typename Named>
bool insertSorted(std::vector<Named*>& sorted, Named* item) {
  return item != nullptr && withinMemory([&] {
           sorted.insert(sorted.begin() + static_cast<std::ptrdiff_t>(insertPosition(sorted, item)), item);
         });
}

}  // namespace zaro_addressmatch
