#include "AllocationCount.h"

#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<bool> counting{false};
std::atomic<std::size_t> taken{0};
std::atomic<std::ptrdiff_t> held{0};

// The heap keeps a word beside each piece.
std::ptrdiff_t sizeOf(void* piece) {
  return static_cast<std::ptrdiff_t>(malloc_usable_size(piece) + sizeof(void*));
}

void* counted(void* piece) {
  if (piece == nullptr) {
    throw std::bad_alloc();
  }
  if (counting) {
    ++taken;
    held += sizeOf(piece);
  }
  return piece;
}

void release(void* piece) {
  if (piece != nullptr && counting) {
    held -= sizeOf(piece);
  }
  std::free(piece);
}

std::size_t rounded(std::size_t size, std::size_t alignment) {
  return (size + alignment - 1) / alignment * alignment;
}

}  // namespace

AllocationCount::AllocationCount() {
  taken = 0;
  held = 0;
  counting = true;
}

AllocationCount::~AllocationCount() {
  counting = false;
}

std::size_t AllocationCount::allocations() const {
  return taken;
}

std::ptrdiff_t AllocationCount::bytes() const {
  return held;
}

void* operator new(std::size_t size) {
  return counted(std::malloc(size != 0 ? size : 1));
}

void* operator new[](std::size_t size) {
  return counted(std::malloc(size != 0 ? size : 1));
}

void* operator new(std::size_t size, std::align_val_t alignment) {
  const auto bytes = static_cast<std::size_t>(alignment);
  return counted(std::aligned_alloc(bytes, rounded(size != 0 ? size : 1, bytes)));
}

void* operator new[](std::size_t size, std::align_val_t alignment) {
  return ::operator new(size, alignment);
}

void operator delete(void* piece) noexcept {
  release(piece);
}
void operator delete[](void* piece) noexcept {
  release(piece);
}
void operator delete(void* piece, std::size_t) noexcept {
  release(piece);
}
void operator delete[](void* piece, std::size_t) noexcept {
  release(piece);
}
void operator delete(void* piece, std::align_val_t) noexcept {
  release(piece);
}
void operator delete[](void* piece, std::align_val_t) noexcept {
  release(piece);
}
void operator delete(void* piece, std::size_t, std::align_val_t) noexcept {
  release(piece);
}
void operator delete[](void* piece, std::size_t, std::align_val_t) noexcept {
  release(piece);
}
