#include "addressmatch/tree/Level.h"

#include <algorithm>
#include <memory>
#include <new>
#include <utility>

#include "addressmatch/leaf/LeafArena.h"
#include "addressmatch/text/Memory.h"
#include "addressmatch/text/Prefetch.h"
#include "addressmatch/tree/ExactType.h"
#include "addressmatch/tree/SortedInsertion.h"

namespace zaro_addressmatch {

namespace {

// As many as a level counts.
constexpr unsigned int kMostElements = 0x3FFFFFFFu;

}  // namespace

template <>
inline std::vector<KxWildcardNode*>& Level::elements() const {
  return m_node->_children;
}

template <>
inline std::vector<KxListedEmailAddress*>& Level::elements() const {
  return m_node->_leaves;
}

template <>
inline LazySorted<KxWildcardNode> Level::lazy() const {
  return {m_node->_children, m_node->_childrenSorted,
          m_node->_indexes != nullptr ? &m_node->_indexes->children : nullptr};
}

template <>
inline LazySorted<KxListedEmailAddress> Level::lazy() const {
  return {m_node->_leaves, m_node->_leavesSorted, m_node->_indexes != nullptr ? &m_node->_indexes->leaves : nullptr};
}

bool Level::isFilling() const {
  return tree() != nullptr && tree()->isFilling() && !rejectsUnknownTexts() &&
         (tree()->root() != m_node || isExactly<KxWildcardRootNode>(*m_node));
}

void Level::destroy(KxWildcardNode* node) {
  if (node != nullptr && node->_isLabelOwn == 0) {
    node->~KxWildcardNode();
  } else {
    delete node;
  }
}

template <typename Named>
Named* Level::find(const KxIndexedString& name) const {
  if (m_node->_indexes == nullptr && elements<Named>().size() > LazySorted<Named>::kMany) {
    m_node->_indexes.reset(new (std::nothrow) NameIndexes);
  }
  return lazy<Named>().find(name, table() == nullptr);
}

template KxWildcardNode* Level::find(const KxIndexedString& name) const;
template KxListedEmailAddress* Level::find(const KxIndexedString& name) const;

template <typename Named>
bool Level::insert(Named* element) const {
  if (element == nullptr) {
    return false;
  }
  // An object that the tree did not make itself, or that compares in another way, ends the filling: from then on only a
  // walk finds what callers expect.
  if (tree() != nullptr) {
    tree()->admit(element);
    if (tree()->isFilling() && (rejectsUnknownTexts() || !LazySorted<Named>::mayAppend(*element, table()))) {
      tree()->startWalking();
    }
  }
  std::vector<Named*>& all = elements<Named>();
  if (isFilling() && all.size() < kMostElements && withinMemory([&] { lazy<Named>().append(element); })) {
    return true;
  }
  // The index is of no use from here on: the level is searched in order.
  settle();
  m_node->_indexes.reset();
  if (!insertSorted(all, element)) {
    return false;
  }
  noteSorted();
  return true;
}

template bool Level::insert(KxWildcardNode* element) const;
template bool Level::insert(KxListedEmailAddress* element) const;

void Level::sortTails() const {
  lazy<KxWildcardNode>().settle();
  lazy<KxListedEmailAddress>().settle();
  noteSorted();
}

void Level::noteSorted() const {
  m_node->_childrenSorted = m_node->_children.size() & kMostElements;
  m_node->_leavesSorted = m_node->_leaves.size() & kMostElements;
}

void Level::freeze() const {
  m_node->_childrenIndexed = lazy<KxWildcardNode>().settle();
  m_node->_leavesIndexed = lazy<KxListedEmailAddress>().settle();
  noteSorted();
  m_node->_indexes.reset();
}

void Level::destroyContents() const {
  destroyChildren();
  std::for_each(m_node->_leaves.begin(), m_node->_leaves.end(), LeafArena::destroy);
  m_node->_leaves.clear();
  if (m_node->_wildcardLeaf != nullptr) {
    LeafArena::destroy(std::exchange(m_node->_wildcardLeaf, nullptr));
  }
}

// Neither calls nor memory may depend on the depth. So a child's own wildcard child goes first, and its pointer then
// leads back to the level above.
void Level::destroyChildren() const {
  destroy(std::exchange(m_node->_wildcardChild, nullptr));
  for (KxWildcardNode* node = m_node;;) {
    if (!node->_children.empty()) {
      KxWildcardNode* child = node->_children.back();
      node->_children.pop_back();
      prefetchLast(*node);
      destroy(std::exchange(child->_wildcardChild, node));
      node = child;
    } else if (node != m_node) {
      KxWildcardNode* above = std::exchange(node->_wildcardChild, nullptr);
      destroy(node);
      node = above;
    } else {
      return;
    }
  }
}

// Prefetches what destroying the last children reads, one part after the other.
void Level::prefetchLast(const KxWildcardNode& node) {
  constexpr std::size_t kStep = 6;
  const std::size_t count = node._children.size();
  if (count >= 2 * kStep) {
    prefetchNode(*node._children[count - 2 * kStep]);
  }
  if (count >= kStep) {
    Level(*node._children[count - kStep]).prefetchElements();
  }
}

void Level::prefetchNode(const KxLockableClass& node) {
  const auto* begin = reinterpret_cast<const char*>(&node);
  for (const std::size_t offset : {std::size_t{0}, sizeof(KxWildcardNode) / 2, sizeof(KxWildcardNode) - 1}) {
    prefetchLine(begin + offset);
  }
}

void Level::prefetchVectors() const {
  prefetchLine(m_node->_leaves.data());
  prefetchLine(m_node->_children.data());
}

void Level::prefetchElements() const {
  lazy<KxWildcardNode>().prefetchElements();
  lazy<KxListedEmailAddress>().prefetchElements();
}

void Level::prefetchNames() const {
  lazy<KxWildcardNode>().prefetchNames();
  lazy<KxListedEmailAddress>().prefetchNames();
}

}  // namespace zaro_addressmatch
