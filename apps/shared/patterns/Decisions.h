// What trees of patterns decide about addresses.
#pragma once

#include <string>
#include <vector>

#include "KxListedEmailAddress.h"
#include "patterns/PatternTrees.h"

// The outputs of KxWildcardEmail::matchEmailAddress. The pattern belongs to its tree, and is null when the code is 0.
struct Decision {
  unsigned int code = 0;
  unsigned int tree = 0;
  const char* pattern = nullptr;
  KxEmailBelongsTo kind = 0;
};

// One for each address, in their order. Throws std::bad_alloc when memory runs out for one.
std::vector<Decision> decide(const std::vector<std::string>& addresses, PatternTrees& trees);
