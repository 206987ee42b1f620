#include "patterns/Decisions.h"

#include <algorithm>

#include "KxWildcardEmail.h"

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
  return decisions;
}

bool allDecided(const std::vector<Decision>& decisions) {
  return std::all_of(decisions.begin(), decisions.end(), [](const Decision& decision) { return decision.code != 0; });
}
