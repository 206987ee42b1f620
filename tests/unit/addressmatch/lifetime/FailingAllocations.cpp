#include "FailingAllocations.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

std::atomic<int> allocationsLeft{0};  // 0: none fails
std::atomic<bool> failed{false};

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
  return failed.exchange(false);
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
