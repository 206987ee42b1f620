#include "NothrowAllocationFailure.h"

#include <atomic>
#include <cstddef>
#include <new>

namespace {

std::atomic<int> allocationsLeft{0};  // 0: none fails

bool failsNow() {
  return allocationsLeft > 0 && --allocationsLeft == 0;
}

}  // namespace

NothrowAllocationFailure::NothrowAllocationFailure(int allocation) {
  allocationsLeft = allocation;
}

NothrowAllocationFailure::~NothrowAllocationFailure() {
  allocationsLeft = 0;
}

bool NothrowAllocationFailure::happened() const {
  return allocationsLeft == 0;
}

// All go through the ordinary forms, which a program may have replaced, so that a sanitizer sees matching pairs of new and delete.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  try {
    return failsNow() ? nullptr : ::operator new(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  try {
    return failsNow() ? nullptr : ::operator new[](size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

void operator delete(void* piece, const std::nothrow_t&) noexcept {
  ::operator delete(piece);
}

void operator delete[](void* piece, const std::nothrow_t&) noexcept {
  ::operator delete[](piece);
}
