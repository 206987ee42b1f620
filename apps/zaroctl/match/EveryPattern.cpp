#include "match/EveryPattern.h"

#include <cstddef>
#include <new>
#include <utility>

bool EveryPattern::answer(const Addresses& addresses) {
  for (const AskedAddress& address : addresses) {
    if (address.asked) {
      show(address);
    }
  }
  return allDecided(addresses, decide(addresses, m_trees));
}

void EveryPattern::show(const AskedAddress& address) {
  for (std::size_t tree = 0; tree != m_trees.roots().size(); ++tree) {
    m_leaves.clear();
    if (!m_trees.roots()[tree]->findAllMatches(address.asked->c_str(), m_leaves)) {
      throw std::bad_alloc();
    }
    for (const KxListedEmailAddress* leaf : m_leaves) {
      Json row = address.row();
      row["pattern"] = leaf->getFullAddressAsStr();
      row["kind"] = leaf->getState();
      row["weight"] = leaf->getWeight();
      row["tree"] = m_trees.name(tree);
      row["tree_index"] = tree;
      m_rows.add(std::move(row));
    }
  }
}
