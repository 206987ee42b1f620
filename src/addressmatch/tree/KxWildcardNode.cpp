#include "KxWildcardNode.h"

#include <algorithm>
#include <memory>
#include <string>
#include <utility>

#include "PolicyLog.h"
#include "addressmatch/intern/Handles.h"
#include "addressmatch/intern/LibraryLifetime.h"
#include "addressmatch/intern/ParsedAddress.h"
#include "addressmatch/text/LowerCaseText.h"
#include "addressmatch/text/Memory.h"
#include "addressmatch/text/Prefetch.h"
#include "addressmatch/tree/Descent.h"
#include "addressmatch/tree/ExactType.h"
#include "addressmatch/tree/GrowingLevel.h"
#include "addressmatch/tree/LevelFilling.h"
#include "addressmatch/tree/TreeState.h"

using namespace zaro_addressmatch;

namespace {

// Entries of a locked table carry ranks, so a handle without one is no entry; "indexed" says that the vector holds only
// entries, and then such a handle cannot be there.
bool isUnknown(const KxIndexedString& key, bool indexed) {
  return indexed && key.getIndex() >= KxIndexedString::Wrapper;
}

void logNoMemory(const char* address) {
  PolicyLog::log(LogLevel::Error, "KxWildcardNode::findMatches: out of memory; no match is reported for %s",
                 address != nullptr ? address : "");
}

}  // namespace

KxWildcardNode::KxWildcardNode(KxStringtable* table, const KxIndexedString* label)
    : KxLockableClass(table != nullptr),
      KxIndexedStringNamedClass(table, label),
      _childrenSorted(0),
      _childrenIndexed(0),
      _leavesSorted(0),
      _leavesIndexed(0) {}

KxWildcardNode::~KxWildcardNode() {
  destroyContents();
}

void KxWildcardNode::destroyContents() {
  destroyChildren();
  std::for_each(_leaves.begin(), _leaves.end(), destroyLeaf);
  _leaves.clear();
  if (_wildcardLeaf != nullptr) {
    destroyLeaf(std::exchange(_wildcardLeaf, nullptr));
  }
}

// The leaves have no virtual destructor, and their vector holds nothing but their base.
void KxWildcardNode::destroyLeaf(KxListedEmailAddress* leaf) {
  const bool inTreesMemory = leaf->_inTreesMemory != 0;
  leaf->KxListedEmailAddress::~KxListedEmailAddress();
  if (!inTreesMemory) {
    ::operator delete(leaf);
  }
}

// Neither calls nor memory may be spent on the depth. So a child's own wildcard child goes first, and its pointer then
// leads back to the level above.
void KxWildcardNode::destroyChildren() {
  delete std::exchange(_wildcardChild, nullptr);
  for (KxWildcardNode* node = this;;) {
    if (!node->_children.empty()) {
      KxWildcardNode* child = node->_children.back();
      node->_children.pop_back();
      delete std::exchange(child->_wildcardChild, node);
      node = child;
    } else if (node != this) {
      KxWildcardNode* above = std::exchange(node->_wildcardChild, nullptr);
      delete node;
      node = above;
    } else {
      return;
    }
  }
}

void KxWildcardNode::lock() {
  _lock();
  _childrenIndexed = growingChildren().settle();
  _leavesIndexed = growingLeaves().settle();
  noteSorted();
  _filling.reset();
}

// Has the processor fetch a level, or whatever else it is.
void KxWildcardNode::prefetchParts(const KxLockableClass& level) {
  const auto* begin = reinterpret_cast<const char*>(&level);
  for (const std::size_t offset : {std::size_t{0}, sizeof(KxWildcardNode) / 2, sizeof(KxWildcardNode) - 1}) {
    prefetchLine(begin + offset);
  }
}

void KxWildcardNode::prefetchForLock(const KxLockOnInitQueue& queue) {
  // Far enough apart for each step to find what the one before asked for.
  constexpr std::size_t kObject = 24;
  constexpr std::size_t kElements = 15;
  constexpr std::size_t kEachElement = 9;
  constexpr std::size_t kNames = 4;
  const auto levelAhead = [&queue](std::size_t places) -> KxWildcardNode* {
    KxLockableClass* object = queue._ahead(places);
    return object != nullptr && isExactly<KxWildcardNode>(*object) ? static_cast<KxWildcardNode*>(object) : nullptr;
  };
  // Not known yet for a level, most leaves lie side by side.
  if (const KxLockableClass* object = queue._ahead(kObject)) {
    prefetchParts(*object);
  }
  if (const KxWildcardNode* level = levelAhead(kElements)) {
    prefetchLine(level->_leaves.data());
    prefetchLine(level->_children.data());
  }
  if (KxWildcardNode* level = levelAhead(kEachElement)) {
    level->growingChildren().prefetchElements();
    level->growingLeaves().prefetchElements();
  }
  if (KxWildcardNode* level = levelAhead(kNames)) {
    level->growingChildren().prefetchNames();
    level->growingLeaves().prefetchNames();
  }
}

KxWildcardNode* KxWildcardNode::_findMatchingChild(const KxIndexedString& label) {
  settle();
  return isUnknown(label, _childrenIndexed) ? nullptr : binarySearchInPointerVector(_children, label);
}

bool KxWildcardNode::_matchWildcard(const KxIndexedString& /*label*/) {
  return _wildcardChild != nullptr;
}

KxListedEmailAddress* KxWildcardNode::_findMatchingLeafNode(const KxIndexedString& name, bool atEnd) {
  settle();
  return !atEnd || isUnknown(name, _leavesIndexed) ? nullptr : binarySearchInPointerVector(_leaves, name);
}

bool KxWildcardNode::_matchLeafWildcard(const KxIndexedString& /*name*/, bool atEnd) {
  return atEnd && _wildcardLeaf != nullptr;
}

bool KxWildcardNode::_matchesThisNode(LabelStack& labels, const KxIndexedString*& consumed) {
  consumed = nullptr;
  if (labels.empty()) {
    return false;
  }
  // Not compared: the level above chose this node by the label.
  consumed = labels.top();
  labels.pop();
  return true;
}

std::vector<KxListedEmailAddress*>& KxWildcardNode::findMatches(const char* address,
                                                                std::vector<KxListedEmailAddress*>& out) {
  findAllMatches(address, out);
  return out;
}

void KxWildcardNode::findMatches(const KxIndexedString* name, LabelStack& labels,
                                 std::vector<KxListedEmailAddress*>& out) {
  if (isGone(_stringtable)) {
    return;
  }
  const std::size_t before = out.size();
  if (!withinMemory([&] { search(orEmpty(name), labels, out); })) {
    logNoMemory(orEmpty(name).getString());
    out.resize(before);
  }
}

bool KxWildcardNode::findAllMatches(const char* address, std::vector<KxListedEmailAddress*>& out) {
  const std::size_t before = out.size();
  const bool complete = withinMemory([&] {
    const FrozenIndex* frozen = index();
    if (frozen == nullptr || !frozen->find(address, out)) {
      walk(address, out);
    }
  });
  if (!complete) {
    logNoMemory(address);
    out.resize(before);
  }
  return complete;
}

bool KxWildcardNode::findAllMatches(const char* const* addresses, std::size_t count,
                                    std::vector<KxListedEmailAddress*>& out, std::vector<std::size_t>& ends) {
  const std::size_t before = out.size();
  const std::size_t endsBefore = ends.size();
  const bool complete = withinMemory([&] {
    ends.reserve(endsBefore + count);
    const FrozenIndex* frozen = index();
    for (std::size_t i = 0; i != count; ++i) {
      if (frozen != nullptr) {
        i += frozen->findEach(addresses + i, count - i, out, ends);
        if (i == count) {
          return;
        }
      }
      walk(addresses[i], out);
      ends.push_back(out.size());
    }
  });
  if (!complete) {
    logNoMemory(ends.size() - endsBefore < count ? addresses[ends.size() - endsBefore] : nullptr);
    out.resize(before);
    ends.resize(endsBefore);
  }
  return complete;
}

const FrozenIndex* KxWildcardNode::index() const {
  return _tree != nullptr && _tree->root == this && !isGone(_stringtable) ? _tree->index.get() : nullptr;
}

void KxWildcardNode::walk(const char* address, std::vector<KxListedEmailAddress*>& out) {
  if (address == nullptr || isGone(_stringtable)) {
    return;
  }
  LowerCaseText text(address);
  ParsedAddress parsed(_stringtable, text.get());
  if (!parsed.isComplete()) {
    throw std::bad_alloc();
  }
  search(parsed.localPart(), parsed.labels(), out);
}

void KxWildcardNode::search(const KxIndexedString& name, LabelStack& labels, std::vector<KxListedEmailAddress*>& out) {
  Descent descent(labels);
  for (KxWildcardNode* node = this; node != nullptr;) {
    if (!descent.enter(*node)) {
      descent.climb();
      break;
    }
    node = labels.empty() ? nullptr : node->_findMatchingChild(orEmpty(labels.top()));
  }
  while (!descent.isOut()) {
    descent.deepest().searchBesideChildren(name, labels, out);
    // The levels above go on with their own labels only while the stack is whole.
    if (!descent.climb()) {
      throw std::bad_alloc();
    }
  }
}

void KxWildcardNode::searchBesideChildren(const KxIndexedString& name, LabelStack& labels,
                                          std::vector<KxListedEmailAddress*>& out) {
  const bool atEnd = labels.empty();
  if (!atEnd && _matchWildcard(orEmpty(labels.top()))) {
    _wildcardChild->search(name, labels, out);  // one level, no deeper
  }
  if (KxListedEmailAddress* leaf = _findMatchingLeafNode(name, atEnd)) {
    out.push_back(leaf);
  }
  if (_matchLeafWildcard(name, atEnd)) {
    out.push_back(_wildcardLeaf);
  }
}

KxWildcardNode::LabelStack& KxWildcardNode::parseAddress(KxStringtable* table, const char* emailAddress,
                                                         char* allStrings, LabelStack& labels) {
  parseInto(table, emailAddress, allStrings, labels);
  return labels;
}

const KxIndexedString* KxWildcardNode::getEmailAddressName(LabelStack& labels) {
  return popLabel(labels);
}

KxWildcardedWildcardNode::KxWildcardedWildcardNode(KxStringtable* table)
    : KxWildcardNode(table, &KxStringtable::_theWildcardIndexedString) {}

KxWildcardedWildcardNode::~KxWildcardedWildcardNode() = default;

bool KxWildcardedWildcardNode::addAddressPattern(const KxIndexedString* fullAddress, const KxIndexedString* name,
                                                 LabelStack& labels, KxEmailBelongsTo kind, const char* annotation,
                                                 std::string* owner) {
  const KxIndexedString* consumed = nullptr;
  if (!_matchesThisNode(labels, consumed)) {
    return false;
  }
  // The labels that are left are covered by the wildcard.
  const bool added = _addOrModifyLeaf(name, fullAddress, kind, annotation, owner);
  return (consumed == nullptr || pushOrRelease(labels, consumed)) && added;
}

KxWildcardNode* KxWildcardedWildcardNode::_findMatchingChild(const KxIndexedString& /*label*/) {
  return nullptr;
}

bool KxWildcardedWildcardNode::_matchWildcard(const KxIndexedString& /*label*/) {
  return false;
}

KxListedEmailAddress* KxWildcardedWildcardNode::_findMatchingLeafNode(const KxIndexedString& name, bool /*atEnd*/) {
  return KxWildcardNode::_findMatchingLeafNode(name, true);
}

bool KxWildcardedWildcardNode::_matchLeafWildcard(const KxIndexedString& name, bool /*atEnd*/) {
  return KxWildcardNode::_matchLeafWildcard(name, true);
}

bool KxWildcardedWildcardNode::_matchesThisNode(LabelStack& /*labels*/, const KxIndexedString*& consumed) {
  consumed = nullptr;
  return true;
}

KxWildcardRootNode::KxWildcardRootNode(KxStringtable* table)
    : KxWildcardNode(table, &KxStringtable::_theEmptyIndexedString) {
  withinMemory([this] { _ownTree = std::make_shared<TreeState>(this); });
  _tree = _ownTree.get();
}

KxWildcardRootNode::~KxWildcardRootNode() {
  destroyContents();  // while the memory of the leaves is there
  if (_ownTree != nullptr) {
    _ownTree->root = nullptr;
  }
}

bool KxWildcardRootNode::_matchesThisNode(LabelStack& /*labels*/, const KxIndexedString*& consumed) {
  consumed = nullptr;
  return true;
}
