#include "match/DecidingPattern.h"

#include <utility>

bool DecidingPattern::answer(const Addresses& addresses) {
  const std::vector<Decision> decisions = decide(addresses, m_trees);
  for (std::size_t i = 0; i != addresses.size(); ++i) {
    Json row = addresses[i].row();
    describe(decisions[i], m_trees, "", row);
    m_rows.add(std::move(row));
  }
  return allDecided(addresses, decisions);
}
