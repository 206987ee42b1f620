// What the levels of one tree share, and the phase that the tree is in.
//
//   PatternsOnly --mixIn--> Filling --freeze--> Indexed
//        |                     |                   |
//        +---------------------+---- startWalking -+----> Walked
//
//   PatternsOnly  filled with whole patterns only. Every level whose domain has a key is in the map of domains, and a leaf
//                 there is new exactly when its full address is
//   Filling       filled by the tree's own operations, in whatever way
//   Indexed       frozen; the index answers, but for addresses that a pattern concerns which was added since
//   Walked        a walk down the levels answers: an object was put in by hand, or has a name of another kind, or a pattern
//                 that may concern any address was added after the freeze; or the freeze could not make an index. The
//                 last phase
//
// `freeze` leads from the first two phases to Walked, and `answerFrom` on to Indexed when there can be an index.
#pragma once

#include <cstddef>
#include <memory>
#include <utility>

#include "KxWildcardNode.h"
#include "addressmatch/index/FrozenIndex.h"
#include "addressmatch/leaf/LeafArena.h"
#include "addressmatch/text/SlotArena.h"
#include "addressmatch/tree/AddedPatterns.h"
#include "addressmatch/tree/DomainMap.h"
#include "addressmatch/tree/OwnTexts.h"

namespace zaro_addressmatch {

class TreeState : public std::enable_shared_from_this<TreeState> {
 public:
  explicit TreeState(KxWildcardNode* root) : m_root(root) {}

  // Null when it has been destroyed.
  KxWildcardNode* root() const { return m_root; }
  void rootIsGone() {
    leaveFilters();
    m_root = nullptr;
  }

  bool hasOnlyPatterns() const { return m_phase == Phase::PatternsOnly; }
  bool isFilling() const { return m_phase == Phase::PatternsOnly || m_phase == Phase::Filling; }
  // What answers for all addresses; null in every phase but Indexed, and when patterns were added since.
  const FrozenIndex* index() const { return m_index.get(); }
  // What answers for an address, or null. Throws std::bad_alloc.
  const FrozenIndex* indexFor(const char* address) const {
    if (m_partialIndex == nullptr) {
      return m_index.get();
    }
    return address == nullptr || !m_added.mayConcern(address) ? m_partialIndex.get() : nullptr;
  }

  // The transitions.
  void mixIn() { m_phase = hasOnlyPatterns() ? Phase::Filling : m_phase; }
  void startWalking() {
    m_phase = Phase::Walked;
    leaveFilters();
    m_index.reset();
    m_partialIndex.reset();
  }
  // To be called once every level is locked. The tree is Walked until it gets its index, if there is any. Throws
  // std::bad_alloc.
  UnfilteredIndex freeze();
  void answerFrom(std::unique_ptr<const FrozenIndex> index);

  // To be called before a level stores an object. An object that the tree did not announce comes from a caller.
  void admit(const void* object) {
    if (object != m_announced || (!isFilling() && !noteAddition())) {
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

  // The time in which a pattern is added by its text. What a tree with an index stores meanwhile is noted to be the
  // pattern's.
  class Addition {
   public:
    // A pattern in lower case. Throws std::bad_alloc.
    Addition(TreeState* tree, const char* pattern, std::size_t size) : m_tree(tree) {
      if (m_tree != nullptr && m_tree->m_phase == Phase::Indexed) {
        m_tree->m_added.reserveOne();
        m_tree->m_addition = AddedPatterns::keyOf(pattern, size);
      }
    }
    ~Addition() {
      if (m_tree != nullptr) {
        m_tree->m_addition = 0;
      }
    }
    Addition(const Addition&) = delete;
    Addition& operator=(const Addition&) = delete;

   private:
    TreeState* m_tree;
  };

  DomainMap& domains() { return m_domains; }
  OwnTexts& ownTexts() { return m_ownTexts; }
  LeafArena& arena() { return m_arena; }
  // Memory for a level, which goes with the tree; null when it runs out.
  static constexpr std::size_t kNode = sizeof(void*) == 8 ? 128 : 64;
  void* takeNode() { return m_nodes.take(); }

 private:
  enum class Phase { PatternsOnly, Filling, Indexed, Walked };

  // From then on calls look for the index where the tree keeps it.
  void leaveFilters() {
    if (m_index != nullptr) {
      m_index->filters().members[m_index->slice()].root.store(nullptr, std::memory_order_relaxed);
    }
  }
  // False when it is not known which addresses it concerns.
  bool noteAddition() {
    if (m_phase != Phase::Indexed || m_addition == 0) {
      return false;
    }
    if (m_index != nullptr) {
      leaveFilters();
      m_partialIndex = std::move(m_index);
    }
    m_added.add(m_addition);
    return true;
  }

  KxWildcardNode* m_root;
  std::unique_ptr<const FrozenIndex> m_index;  // beside the root: every call reads both
  const void* m_announced = nullptr;
  Phase m_phase = Phase::PatternsOnly;
  DomainMap m_domains;  // empty after the freeze
  OwnTexts m_ownTexts;
  LeafArena m_arena;
  SlotArena<kNode> m_nodes;
  std::unique_ptr<const FrozenIndex> m_partialIndex;  // the same, once patterns were added that it lacks
  AddedPatterns::Key m_addition = 0;                  // of the pattern that is being added
  AddedPatterns m_added;
};

}  // namespace zaro_addressmatch
