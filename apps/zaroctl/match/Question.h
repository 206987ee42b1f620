// What the command match is asked about addresses.
#pragma once

#include <string>
#include <vector>

using Addresses = std::vector<std::string>;

// What is to be known of addresses. `answer` says whether all of them count as found.
class Question {
 public:
  virtual ~Question() = default;
  virtual bool answer(const Addresses& addresses) = 0;
  // An address that could not be read.
  virtual void skip() {}
  virtual void finish() {}
};
