#include "patterns/Decisions.h"

#include <algorithm>
#include <cstddef>
#include <new>

#include "KxMatchExplanation.h"
#include "KxWildcardEmail.h"

namespace {

// Nothing decides an address also when memory ran out; then this throws std::bad_alloc, or decides it after all.
Decision decideAgain(const std::string& address, PatternTrees& trees) {
  KxMatchExplanation explanation;
  KxWildcardEmail::explainEmailAddress(address.c_str(), trees.roots(), explanation);
  if (!explanation.complete) {
    throw std::bad_alloc();
  }
  return {explanation.code, explanation.treeIndex, explanation.name, explanation.belongsTo};
}

}  // namespace

std::vector<Decision> decide(const std::vector<std::string>& addresses, PatternTrees& trees) {
  std::vector<const char*> texts(addresses.size());
  std::transform(addresses.begin(), addresses.end(), texts.begin(),
                 [](const std::string& address) { return address.c_str(); });
  std::vector<KxMatchResult> results(addresses.size());
  KxWildcardEmail::matchEmailAddressBatch(texts.data(), texts.size(), trees.roots(), results.data());
  std::vector<Decision> decisions(addresses.size());
  std::transform(results.begin(), results.end(), decisions.begin(), [](const KxMatchResult& result) {
    return Decision{result.code, result.treeIndex, result.name, result.belongsTo};
  });
  for (std::size_t i = 0; i != decisions.size(); ++i) {
    if (decisions[i].code == 0) {
      decisions[i] = decideAgain(addresses[i], trees);
    }
  }
  return decisions;
}
