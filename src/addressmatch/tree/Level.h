// One level of a tree, as the library itself reads and changes it: the only friend of its node.
#pragma once

#include <cstddef>
#include <vector>

#include "KxWildcardNode.h"
#include "addressmatch/intern/LibraryLifetime.h"
#include "addressmatch/tree/LazySorted.h"
#include "addressmatch/tree/TreeState.h"

namespace zaro_addressmatch {

// A reference to a node; as cheap to copy as a pointer.
class Level {
 public:
  explicit Level(KxWildcardNode& node) : m_node(&node) {}

  KxWildcardNode& node() const { return *m_node; }
  KxStringtable* table() const { return m_node->_stringtable; }  // null for a floating level
  TreeState* tree() const { return m_node->_tree; }              // null for a level of no tree
  void setTree(TreeState* tree) const { m_node->_tree = tree; }

  // What answers for the tree below a root; null for a walk.
  const FrozenIndex* index() const { return isRoot() ? tree()->index() : nullptr; }
  // The same for one address, when patterns were added since the freeze. Throws std::bad_alloc.
  const FrozenIndex* indexFor(const char* address) const { return isRoot() ? tree()->indexFor(address) : nullptr; }

  // Sorted once settled.
  const std::vector<KxWildcardNode*>& children() const { return m_node->_children; }
  const std::vector<KxListedEmailAddress*>& leaves() const { return m_node->_leaves; }
  KxWildcardNode* wildcardChild() const { return m_node->_wildcardChild; }
  void setWildcardChild(KxWildcardNode* child) const { m_node->_wildcardChild = child; }
  KxListedEmailAddress* wildcardLeaf() const { return m_node->_wildcardLeaf; }
  void setWildcardLeaf(KxListedEmailAddress* leaf) const { m_node->_wildcardLeaf = leaf; }
  bool findsOnlyRankedChildren() const { return m_node->_childrenIndexed != 0; }
  bool findsOnlyRankedLeaves() const { return m_node->_leavesIndexed != 0; }

  // Whether new elements may lie in the tails of the vectors. Not in a level that may have a way of its own to find
  // them: the root of a class derived from the library's, or a level that takes no text for known that its table lacks.
  bool isFilling() const;
  // The same, over a table that takes no texts any more.
  bool isFillingOverLockedTable() const { return table() != nullptr && table()->isLocked() && isFilling(); }
  // Whether a handle is of this level's table or of none. Another table's may compare by that table's ranks.
  bool knows(const KxIndexedString& handle) const {
    return handle.getIndex() >= KxIndexedString::Wrapper || table()->_findInStringtable(&handle) == &handle;
  }

  // A new level of the tree's arena, for a label that belongs to the table or to the tree; null when memory runs out.
  template <typename Node>
  Node* newChild(const KxIndexedString& label) const {
    static_assert(sizeof(Node) <= TreeState::kNode, "a level fits");
    void* const slot = tree()->takeNode();
    return slot != nullptr ? new (slot) Node(*table(), label) : nullptr;
  }
  // Destroys a level of an arena or of the heap; null is ignored.
  static void destroy(KxWildcardNode* node);
  // The child or leaf of a name, or null. `name` is an entry of the level's table, if it has one. While filling.
  template <typename Named>
  Named* find(const KxIndexedString& name) const;
  // Adds a child or leaf; false for null and when memory runs out.
  template <typename Named>
  bool insert(Named* element) const;

  // Sorts the vectors. To be called before they are read.
  void settle() const {
    if (m_node->_childrenSorted != m_node->_children.size() || m_node->_leavesSorted != m_node->_leaves.size()) {
      sortTails();
    }
  }
  // The same at the freeze: notes whether all names have ranks, and drops the indexes.
  void freeze() const;

  // Destroys everything below, without deeper calls for deeper levels.
  void destroyContents() const;

  // Prefetch the node, its vectors, its elements and their names, in this order and each well after the other.
  static void prefetchNode(const KxLockableClass& node);
  void prefetchVectors() const;
  void prefetchElements() const;
  void prefetchNames() const;

 private:
  bool isRoot() const { return tree() != nullptr && tree()->root() == m_node && !isGone(table()); }
  bool rejectsUnknownTexts() const {
    return (findsOnlyRankedChildren() || findsOnlyRankedLeaves()) && table() != nullptr && table()->isLocked();
  }
  template <typename Named>
  std::vector<Named*>& elements() const;
  template <typename Named>
  LazySorted<Named> lazy() const;

  void sortTails() const;
  void noteSorted() const;
  void destroyChildren() const;
  static void prefetchLast(const KxWildcardNode& node);

  KxWildcardNode* m_node;
};

}  // namespace zaro_addressmatch
