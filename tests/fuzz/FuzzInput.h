// What fuzz targets share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

// The input as a text, which may hold NULs.
inline std::string textOf(const std::uint8_t* data, std::size_t size) {
  return std::string(reinterpret_cast<const char*>(data), size);
}

// The input and a NUL behind it, in a block of that size, so that a sanitizer sees what reads past it.
inline std::vector<char> blockOf(const std::uint8_t* data, std::size_t size) {
  std::vector<char> block(size + 1, '\0');
  for (std::size_t at = 0; at < size; ++at) {
    block[at] = static_cast<char>(data[at]);
  }
  return block;
}

// Where FUZZ_CHECK tells what does not hold.
inline int fuzzErrors = 2;

// Ends the run, and with it keeps the input, unless something holds.
#define FUZZ_CHECK(condition)                                                       \
  do {                                                                              \
    if (!(condition)) {                                                             \
      dprintf(fuzzErrors, "%s:%d: not true: %s\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                 \
    }                                                                               \
  } while (false)
