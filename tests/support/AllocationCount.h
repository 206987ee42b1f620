// Counting allocations.
#pragma once

#include <cstddef>

// Counts what the process takes from its heap with `new` while it exists. One at a time, on one thread.
class AllocationCount {
 public:
  AllocationCount();
  ~AllocationCount();

  AllocationCount(const AllocationCount&) = delete;
  AllocationCount& operator=(const AllocationCount&) = delete;

  std::size_t allocations() const;
  // Bytes that were taken and not given back meanwhile, what the heap adds to each piece included.
  std::ptrdiff_t bytes() const;
};
