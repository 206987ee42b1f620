// The text that the platform throws.
#pragma once

#include <string>

namespace zarotest {

template <typename Operation>
std::string thrownBy(Operation operation) {
  try {
    operation();
  } catch (const char* thrown) {
    return thrown;
  }
  return "nothing thrown";
}

}  // namespace zarotest
