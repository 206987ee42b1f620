// Allocations that fail, of every form of new. Linking this replaces the program's operator new.
#pragma once

// From now on the calling thread's `allocation`-th fails, the others succeed; 1 is the next one, 0 lets all succeed.
// Returns whether the one that was to fail has been asked for since the last call.
bool failAllocation(int allocation);

// Runs `action` with its `allocation`-th allocation failing; whether it came to that.
template <typename Action>
bool failsAt(int allocation, Action action) {
  failAllocation(allocation);
  action();
  return failAllocation(0);
}
