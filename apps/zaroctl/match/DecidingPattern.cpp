#include "match/DecidingPattern.h"

#include <utility>

#include "patterns/Decisions.h"

bool DecidingPattern::answer(const Addresses& addresses) {
  const std::vector<Decision> decisions = decide(addresses, m_trees);
  for (std::size_t i = 0; i != addresses.size(); ++i) {
    Json row = {{"address", addresses[i]}};
    describe(decisions[i], m_trees, "", row);
    m_rows.add(std::move(row));
  }
  return allDecided(decisions);
}
