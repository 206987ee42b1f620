// Failures of the runtime's own operations.
#pragma once

#include <stdexcept>

namespace zaroruntime {

// What failed, on what, why, and what to do; one line, never with a password in it.
class RuntimeError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace zaroruntime
