// Allocations that fail. The language's own go through these as well.
#include <malloc.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "Control.h"

extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);

}  // extern "C"

namespace {

bool fails(const void* caller, const char* name) {
  if (!faults::isChosen(faults::isOurs(caller) ? faults::kAllocation : faults::kAllocationOfDrivers, name)) {
    return false;
  }
  if (faults::action() == faults::kKill) {
    faults::killProcess();
  }
  errno = ENOMEM;
  return true;
}

char* copyOf(const char* text, std::size_t length) {
  auto* const copy = static_cast<char*>(__libc_malloc(length + 1));
  if (copy != nullptr) {
    std::memcpy(copy, text, length);
    copy[length] = '\0';
  }
  return copy;
}

}  // namespace

extern "C" {

void* malloc(std::size_t size) {
  return fails(__builtin_return_address(0), "malloc") ? nullptr : __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) {
  return fails(__builtin_return_address(0), "calloc") ? nullptr : __libc_calloc(count, size);
}

void* realloc(void* memory, std::size_t size) {
  return fails(__builtin_return_address(0), "realloc") ? nullptr : __libc_realloc(memory, size);
}

void* memalign(std::size_t alignment, std::size_t size) {
  return fails(__builtin_return_address(0), "memalign") ? nullptr : __libc_memalign(alignment, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
  return fails(__builtin_return_address(0), "aligned_alloc") ? nullptr : __libc_memalign(alignment, size);
}

int posix_memalign(void** memory, std::size_t alignment, std::size_t size) {
  if (fails(__builtin_return_address(0), "posix_memalign")) {
    return ENOMEM;
  }
  *memory = __libc_memalign(alignment, size);
  return *memory != nullptr ? 0 : ENOMEM;
}

// Here for the sake of the caller, which would be the C library.
char* strdup(const char* text) {
  return fails(__builtin_return_address(0), "strdup") ? nullptr : copyOf(text, std::strlen(text));
}

char* strndup(const char* text, std::size_t most) {
  return fails(__builtin_return_address(0), "strndup") ? nullptr : copyOf(text, strnlen(text, most));
}

}  // extern "C"
