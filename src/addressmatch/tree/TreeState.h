// What the levels of one tree share, and the phase that the tree is in.
//
//   PatternsOnly --mixIn--> Filling --freeze--> Indexed
//        |                     |                   |
//        +---------------------+---- startWalking -+----> Walked
//
//   PatternsOnly  filled with whole patterns only. Every level whose domain has a key is in the map of domains, and a leaf
//                 there is new exactly when its full address is
//   Filling       filled by the tree's own operations, in whatever way
//   Indexed       frozen; the index answers
//   Walked        a walk down the levels answers: an object was put in by hand, or after the freeze, or has a name of
//                 another kind; or the freeze could not make an index. The last phase
//
// `freeze` leads from the first two phases to Indexed, or to Walked when there can be no index.
#pragma once

#include <memory>

#include "KxWildcardNode.h"
#include "addressmatch/index/FrozenIndex.h"
#include "addressmatch/leaf/LeafArena.h"
#include "addressmatch/tree/DomainMap.h"
#include "addressmatch/tree/OwnTexts.h"

namespace zaro_addressmatch {

class TreeState : public std::enable_shared_from_this<TreeState> {
 public:
  explicit TreeState(KxWildcardNode* root) : m_root(root) {}

  // Null when it has been destroyed.
  KxWildcardNode* root() const { return m_root; }
  void rootIsGone() { m_root = nullptr; }

  bool hasOnlyPatterns() const { return m_phase == Phase::PatternsOnly; }
  bool isFilling() const { return m_phase == Phase::PatternsOnly || m_phase == Phase::Filling; }
  // Null in every phase but Indexed.
  const FrozenIndex* index() const { return m_index.get(); }

  // The transitions.
  void mixIn() { m_phase = hasOnlyPatterns() ? Phase::Filling : m_phase; }
  void startWalking() {
    m_phase = Phase::Walked;
    m_index.reset();
  }
  // To be called once every level is locked. Throws std::bad_alloc; the tree is then Walked.
  void freeze();

  // To be called before a level stores an object. An object that the tree did not announce comes from a caller.
  void admit(const void* object) {
    if (!isFilling() || object != m_announced) {
      startWalking();
    }
  }
  // To be called before a level stores something that no operation for callers stores.
  void admitOwn() { admit(m_announced); }
  // Announces an object that a tree (null: none) is about to store.
  class Announcement {
   public:
    Announcement(TreeState* tree, const void* object) : m_tree(tree) { announce(object); }
    ~Announcement() { announce(nullptr); }
    Announcement(const Announcement&) = delete;
    Announcement& operator=(const Announcement&) = delete;

   private:
    void announce(const void* object) {
      if (m_tree != nullptr) {
        m_tree->m_announced = object;
      }
    }
    TreeState* m_tree;
  };

  DomainMap& domains() { return m_domains; }
  OwnTexts& ownTexts() { return m_ownTexts; }
  LeafArena& arena() { return m_arena; }

 private:
  enum class Phase { PatternsOnly, Filling, Indexed, Walked };

  KxWildcardNode* m_root;
  const void* m_announced = nullptr;
  Phase m_phase = Phase::PatternsOnly;
  DomainMap m_domains;  // empty after the freeze
  OwnTexts m_ownTexts;
  LeafArena m_arena;
  std::unique_ptr<const FrozenIndex> m_index;
};

}  // namespace zaro_addressmatch
