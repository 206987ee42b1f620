// What the command match is asked about addresses.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "console/Output.h"
#include "patterns/Decisions.h"
#include "patterns/PatternTrees.h"

// A line of the input, or an argument.
struct AskedAddress {
  std::optional<std::string> given;  // nothing for a line that could not be read
  std::optional<std::string> asked;  // the text that the trees are asked for; nothing for a line without an address

  // The properties that begin every row about it.
  Json row() const;
};

using Addresses = std::vector<AskedAddress>;

// In which form addresses are asked for.
struct AskedForm {
  bool literal = false;    // as they are given
  std::string delimiters;  // that begin an extension of the local part

  AskedAddress of(const std::string& given) const;
};

// What is to be known of addresses. `answer` says whether all of them count as found; a line without an address does.
class Question {
 public:
  virtual ~Question() = default;
  virtual bool answer(const Addresses& addresses) = 0;
  virtual void finish() {}
};

// One decision for each; code 0 where there is no address.
std::vector<Decision> decide(const Addresses& addresses, PatternTrees& trees);
// Whether every address is decided.
bool allDecided(const Addresses& addresses, const std::vector<Decision>& decisions);
