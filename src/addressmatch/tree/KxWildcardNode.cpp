// The walk: how a tree that has no index is searched. The levels are a trie (Fredkin, "Trie Memory", CACM 1960) over the
// labels of the domain, from the last one on.
//
//   cost   a binary search for each label, another for the local part, and the splitting of the address; no deeper calls
//          for more labels
#include "KxWildcardNode.h"

#include <memory>
#include <string>

#include "PolicyLog.h"
#include "addressmatch/intern/Handles.h"
#include "addressmatch/intern/LibraryLifetime.h"
#include "addressmatch/intern/ParsedAddress.h"
#include "addressmatch/text/LowerCaseText.h"
#include "addressmatch/text/Memory.h"
#include "addressmatch/tree/Descent.h"
#include "addressmatch/tree/Level.h"
#include "addressmatch/tree/SortedInsertion.h"
#include "addressmatch/tree/TreeFilling.h"
#include "addressmatch/tree/TreeState.h"

using namespace zaro_addressmatch;

namespace {

using Leaves = std::vector<KxListedEmailAddress*>;

// Entries of a locked table carry ranks, so a handle without one is no entry; "indexed" says that the vector holds only
// entries, and then such a handle cannot be there.
bool isUnknown(const KxIndexedString& key, bool indexed) {
  return indexed && key.getIndex() >= KxIndexedString::Wrapper;
}

// What a level has apart from its concrete children.
void searchBesideChildren(Level level, const KxIndexedString& name, LabelStack& labels, Leaves& out);

// Both throw std::bad_alloc, and leave the stack as it was.
void search(KxWildcardNode& top, const KxIndexedString& name, LabelStack& labels, Leaves& out) {
  Descent descent(labels);
  for (KxWildcardNode* node = &top; node != nullptr;) {
    if (!descent.enter(*node)) {
      descent.climb();
      break;
    }
    node = labels.empty() ? nullptr : node->_findMatchingChild(orEmpty(labels.top()));
  }
  while (!descent.isOut()) {
    searchBesideChildren(Level(descent.deepest()), name, labels, out);
    // The levels above go on with their own labels only while the stack is whole.
    if (!descent.climb()) {
      throw std::bad_alloc();
    }
  }
}

void walk(KxWildcardNode& top, const char* address, Leaves& out) {
  KxStringtable* table = Level(top).table();
  if (address == nullptr || isGone(table)) {
    return;
  }
  LowerCaseText text(address);
  ParsedAddress parsed(table, text.get());
  if (!parsed.isComplete()) {
    throw std::bad_alloc();
  }
  search(top, parsed.localPart(), parsed.labels(), out);
}

void searchBesideChildren(Level level, const KxIndexedString& name, LabelStack& labels, Leaves& out) {
  KxWildcardNode& node = level.node();
  const bool atEnd = labels.empty();
  if (!atEnd && node._matchWildcard(orEmpty(labels.top()))) {
    search(*level.wildcardChild(), name, labels, out);  // one level, no deeper
  }
  if (KxListedEmailAddress* leaf = node._findMatchingLeafNode(name, atEnd)) {
    out.push_back(leaf);
  }
  if (node._matchLeafWildcard(name, atEnd)) {
    out.push_back(level.wildcardLeaf());
  }
}

// Throws std::bad_alloc.
void findOne(KxWildcardNode& top, const char* address, Leaves& out) {
  const FrozenIndex* frozen = Level(top).indexFor(address);
  if (frozen == nullptr || !frozen->find(address, out)) {
    walk(top, address, out);
  }
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
      _isLabelOwn(1),
      _childrenIndexed(0),
      _leavesSorted(0),
      _leavesIndexed(0) {}

KxWildcardNode::KxWildcardNode(KxStringtable& table, const KxIndexedString& label)
    : KxLockableClass(true),
      KxIndexedStringNamedClass(table, label),
      _childrenSorted(0),
      _isLabelOwn(0),
      _childrenIndexed(0),
      _leavesSorted(0),
      _leavesIndexed(0) {}

KxWildcardNode::~KxWildcardNode() {
  Level(*this).destroyContents();
  if (_isLabelOwn == 0) {
    _name = &KxStringtable::_theEmptyIndexedString;
  }
}

void KxWildcardNode::lock() {
  _lock();
  Level(*this).freeze();
}

KxWildcardNode* KxWildcardNode::_findMatchingChild(const KxIndexedString& label) {
  Level(*this).settle();
  return isUnknown(label, _childrenIndexed) ? nullptr : binarySearchInPointerVector(_children, label);
}

bool KxWildcardNode::_matchWildcard(const KxIndexedString& /*label*/) {
  return _wildcardChild != nullptr;
}

KxListedEmailAddress* KxWildcardNode::_findMatchingLeafNode(const KxIndexedString& name, bool atEnd) {
  Level(*this).settle();
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
  if (!withinMemory([&] { search(*this, orEmpty(name), labels, out); })) {
    logNoMemory(orEmpty(name).getString());
    out.resize(before);
  }
}

bool KxWildcardNode::findAllMatches(const char* address, std::vector<KxListedEmailAddress*>& out) {
  const std::size_t before = out.size();
  const bool complete = withinMemory([&] { findOne(*this, address, out); });
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
    const FrozenIndex* frozen = Level(*this).index();
    for (std::size_t i = 0; i != count; ++i) {
      if (frozen != nullptr) {
        i += frozen->findEach(addresses + i, count - i, out, ends);
        if (i == count) {
          return;
        }
      }
      findOne(*this, addresses[i], out);
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

bool KxWildcardNode::addAddressPattern(const char* address, KxEmailBelongsTo kind, const char* annotation,
                                       std::string* owner) {
  return TreeFilling(*this).add(address, {kind, annotation, owner});
}

std::size_t KxWildcardNode::addAddressPatterns(const char* const* addresses, std::size_t count, KxEmailBelongsTo kind,
                                               const char* annotation, std::string* owner, bool* added) {
  return TreeFilling(*this).addEach(addresses, count, {kind, annotation, owner}, added);
}

bool KxWildcardNode::addAddressPattern(const KxIndexedString* fullAddress, const KxIndexedString* name,
                                       LabelStack& labels, KxEmailBelongsTo kind, const char* annotation,
                                       std::string* owner) {
  return TreeFilling(*this).addSplit(fullAddress, name, labels, {kind, annotation, owner});
}

bool KxWildcardNode::_addOrModifyLeaf(const KxIndexedString* name, const KxIndexedString* fullAddress,
                                      KxEmailBelongsTo kind, const char* annotation, std::string* owner) {
  return TreeFilling(*this).addLeaf(fullAddress, name, {kind, annotation, owner});
}

bool KxWildcardNode::_addToLeafVector(KxListedEmailAddress* leaf) {
  return Level(*this).insert(leaf);
}

bool KxWildcardNode::_addToChildVector(KxWildcardNode* child) {
  return Level(*this).insert(child);
}

unsigned int findInsertPosi(const std::vector<KxWildcardNode*>& sorted, KxWildcardNode* item) {
  return insertPosition(sorted, item);
}

unsigned int findInsertPosi(const std::vector<KxListedEmailAddress*>& sorted, KxListedEmailAddress* item) {
  return insertPosition(sorted, item);
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

KxWildcardedWildcardNode::KxWildcardedWildcardNode(KxStringtable& table, const KxIndexedString& label)
    : KxWildcardNode(table, label) {}

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
  Level(*this).setTree(_ownTree.get());
}

KxWildcardRootNode::~KxWildcardRootNode() {
  Level(*this).destroyContents();  // before the arena of the leaves goes
  if (_ownTree != nullptr) {
    _ownTree->rootIsGone();
  }
}

bool KxWildcardRootNode::_matchesThisNode(LabelStack& /*labels*/, const KxIndexedString*& consumed) {
  consumed = nullptr;
  return true;
}
