// What the levels of one tree share.
#pragma once

#include <memory>

#include "KxWildcardNode.h"
#include "addressmatch/index/FrozenIndex.h"
#include "addressmatch/leaf/LeafArena.h"
#include "addressmatch/tree/DomainMap.h"

namespace zaro_addressmatch {

struct TreeState {
  explicit TreeState(KxWildcardNode* ofTree) : root(ofTree) {}

  // To be told before a level takes something in.
  void takesIn(const void* object) {
    if (isFrozen || object != expected) {
      needsWalk = true;
      index.reset();
    }
  }
  // For as long as a tree (null: none) takes in an object of its own accord.
  class Expectation {
   public:
    Expectation(TreeState* tree, const void* object) : m_tree(tree) { tell(object); }
    ~Expectation() { tell(nullptr); }
    Expectation(const Expectation&) = delete;
    Expectation& operator=(const Expectation&) = delete;

   private:
    void tell(const void* object) {
      if (m_tree != nullptr) {
        m_tree->expected = object;
      }
    }
    TreeState* m_tree;
  };
  // To be called once every level is locked: makes the index, if there can be one. Throws std::bad_alloc.
  void freeze();

  KxWildcardNode* root;  // null when it has gone
  // What the tree is about to take in of its own accord; null for nothing.
  const void* expected = nullptr;
  bool isFrozen = false;
  // Something was put in by somebody else, or after the freeze, or has a name of its own: from then on only a walk
  // tells what is found.
  bool needsWalk = false;
  // Whether nothing came in while filling but whole patterns other than bare texts. Then every level whose domain has a
  // key is among the domains, and the address of a leaf there is its local part at that domain.
  bool hasOnlyPatterns = true;
  DomainMap domains;  // of no use after the freeze
  LeafArena leafArena;
  std::unique_ptr<const FrozenIndex> index;
};

}  // namespace zaro_addressmatch
