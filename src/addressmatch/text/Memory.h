// Running out of memory is an answer here, never an exception that leaves the library.
#pragma once

#include <cstddef>
#include <cstring>
#include <new>

namespace zaro_addressmatch {

// Runs `action`; false when memory ran out in it.
template <typename Action>
bool withinMemory(Action action) {
  try {
    action();
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

// A new array that holds `size` characters of a text and a terminator, or null.
inline char* newText(const char* text, std::size_t size) {
  char* copy = new (std::nothrow) char[size + 1];
  if (copy != nullptr) {
    std::memcpy(copy, text, size);
    copy[size] = '\0';
  }
  return copy;
}

}  // namespace zaro_addressmatch
