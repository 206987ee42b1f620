// How a frozen tree gets its index.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "KxWildcardNode.h"
#include "addressmatch/index/FrozenIndex.h"
#include "addressmatch/index/FrozenIndexBuilder.h"
#include "addressmatch/tree/Level.h"

namespace zaro_addressmatch {

// Walks the levels below a root and hands their leaves to the builder. Its own stack of levels takes the place of
// calls: a domain may have as many labels as a text has characters.
class TreeIndexing {
 public:
  // Without an index when the tree holds something that only a walk treats right. Throws std::bad_alloc.
  static UnfilteredIndex indexOf(KxWildcardNode& root);

 private:
  struct Step {
    Level level;
    std::size_t nextChild;
  };

  TreeIndexing(Level root, FrozenIndexBuilder& builder) : m_root(root), m_builder(builder) {}

  // False as above.
  bool addAll();
  void add(Level level);
  static LevelLeaves leavesOf(Level level);
  static bool holdsSomething(Level level);
  static void prefetchChildren(Level level, std::size_t next);

  Level m_root;
  FrozenIndexBuilder& m_builder;
  std::vector<Step> m_path;
  std::string m_domain;
};

}  // namespace zaro_addressmatch
