// A command line that parses but makes no sense.
#pragma once

#include <stdexcept>

class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};
