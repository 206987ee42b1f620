#include "match/EveryPattern.h"

#include <algorithm>
#include <cstddef>
#include <new>

#include "patterns/Decisions.h"

bool EveryPattern::answer(const Addresses& addresses) {
  std::for_each(addresses.begin(), addresses.end(), [this](const std::string& address) { show(address); });
  return allDecided(decide(addresses, m_trees));
}

void EveryPattern::show(const std::string& address) {
  for (std::size_t tree = 0; tree != m_trees.roots().size(); ++tree) {
    m_leaves.clear();
    if (!m_trees.roots()[tree]->findAllMatches(address.c_str(), m_leaves)) {
      throw std::bad_alloc();
    }
    for (const KxListedEmailAddress* leaf : m_leaves) {
      m_rows.add({{"address", address},
                  {"pattern", leaf->getFullAddressAsStr()},
                  {"kind", leaf->getState()},
                  {"weight", leaf->getWeight()},
                  {"tree", m_trees.name(tree)},
                  {"treeIndex", tree}});
    }
  }
}
