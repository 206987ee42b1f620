// Failing allocations.
#pragma once

// While it exists, one `new (std::nothrow)` of the process yields null; every other allocation succeeds.
class NothrowAllocationFailure {
 public:
  // `allocation` counts from now; 1 is the next one.
  explicit NothrowAllocationFailure(int allocation = 1);
  ~NothrowAllocationFailure();

  NothrowAllocationFailure(const NothrowAllocationFailure&) = delete;
  NothrowAllocationFailure& operator=(const NothrowAllocationFailure&) = delete;

  // Whether the allocation that was to fail has been asked for.
  bool happened() const;
};
