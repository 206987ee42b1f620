// Leaves that lie side by side in a vector of the caller's.
#pragma once

#include <cstddef>
#include <vector>

#include "KxListedEmailAddress.h"

namespace zaro_addressmatch {

struct LeafRange {
  KxListedEmailAddress* const* first = nullptr;
  KxListedEmailAddress* const* last = nullptr;

  static LeafRange of(const std::vector<KxListedEmailAddress*>& all) { return {all.data(), all.data() + all.size()}; }
  KxListedEmailAddress* const* begin() const { return first; }
  KxListedEmailAddress* const* end() const { return last; }
  std::size_t size() const { return static_cast<std::size_t>(last - first); }
  bool empty() const { return first == last; }
};

}  // namespace zaro_addressmatch
