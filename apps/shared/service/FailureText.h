// What a thread that must go on makes of a failure.
#pragma once

#include <exception>
#include <new>
#include <string>

// Runs some work; what it throws is answered as a text. Empty when it went well. Throws nothing, also without memory.
template <typename Work>
std::string failureOf(Work work) {
  try {
    try {
      work();
    } catch (const std::bad_alloc&) {
      throw;
    } catch (const std::exception& failure) {
      return failure.what();
    } catch (const char* thrown) {
      return thrown;  // by the platform, past the library
    }
  } catch (const std::bad_alloc&) {
    return "out of memory";  // short enough to take none itself
  }
  return "";
}
