#include "FailingAllocations.h"

#include <cstddef>
#include <cstdlib>
#include <new>
#include <utility>

namespace {

thread_local int allocationsLeft = 0;  // 0: none fails
thread_local bool failed = false;

void* allocate(std::size_t size) {
  if (allocationsLeft > 0 && --allocationsLeft == 0) {
    failed = true;
    return nullptr;
  }
  return std::malloc(size != 0 ? size : 1);
}

void* allocateOrThrow(std::size_t size) {
  void* memory = allocate(size);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  return memory;
}

}  // namespace

bool failAllocation(int allocation) {
  allocationsLeft = allocation;
  return std::exchange(failed, false);
}

void* operator new(std::size_t size) {
  return allocateOrThrow(size);
}
void* operator new[](std::size_t size) {
  return allocateOrThrow(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return allocate(size);
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete[](void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
  std::free(memory);
}
// For an object whose constructor throws.
void operator delete(void* memory, const std::nothrow_t&) noexcept {
  std::free(memory);
}
void operator delete[](void* memory, const std::nothrow_t&) noexcept {
  std::free(memory);
}
