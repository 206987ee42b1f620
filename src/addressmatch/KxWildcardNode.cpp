#include "KxWildcardNode.h"

#include <memory>
#include <new>
#include <string>
#include <utility>

#include "AddressText.h"
#include "Memory.h"
#include "ParsedAddress.h"
#include "PolicyLog.h"

using namespace zaro_addressmatch;

namespace {

const KxIndexedString& orEmpty(const KxIndexedString* handle) {
  return handle != nullptr ? *handle : KxStringtable::_theEmptyIndexedString;
}

// Entries of a locked table carry ranks, so a handle without one is no entry; "indexed" says that the vector holds only
// entries, and then such a handle cannot be there.
bool isUnknown(const KxIndexedString& key, bool indexed) {
  return indexed && key.getIndex() >= KxIndexedString::Wrapper;
}

std::string loweredText(const char* text) {
  std::string result(text);
  for (char& character : result) {
    character = lowered(character);
  }
  return result;
}

// The label that a level took off the stack, for as long as the levels below are at work. It goes back whatever
// happens; should memory run out for that, it is released.
class ConsumedLabel {
 public:
  explicit ConsumedLabel(KxWildcardNode::LabelStack& labels) : m_labels(labels), m_label(nullptr) {}
  ~ConsumedLabel() { putBack(); }
  ConsumedLabel(const ConsumedLabel&) = delete;
  ConsumedLabel& operator=(const ConsumedLabel&) = delete;

  const KxIndexedString*& receiver() { return m_label; }
  // False when the stack now lacks the label.
  bool putBack() {
    const KxIndexedString* label = std::exchange(m_label, nullptr);
    return label == nullptr || pushOrRelease(m_labels, label);
  }

 private:
  KxWildcardNode::LabelStack& m_labels;
  const KxIndexedString* m_label;
};

// The leaves have no virtual destructor, and their vector holds nothing but their base.
void destroyLeaf(KxListedEmailAddress* leaf) {
  leaf->KxListedEmailAddress::~KxListedEmailAddress();
  ::operator delete(leaf);
}

// Whether memory sufficed for all that makes the leaf what it shall be.
bool isWhole(const KxListedEmailAddress& leaf, const KxIndexedString& name, const KxIndexedString& fullAddress) {
  return leaf.getWeight() != 0 && leaf.getName() == name && leaf.getFullAddress() == fullAddress;
}

template <typename Named>
bool allIndexed(const std::vector<Named*>& elements) {
  for (const Named* element : elements) {
    if (!element->getName().isIndexed()) {
      return false;
    }
  }
  return true;
}

template <typename Named>
unsigned int insertPosition(const std::vector<Named*>& sorted, const Named* item) {
  if (sorted.empty()) {
    return 0;
  }
  std::size_t low = 0;
  std::size_t high = sorted.size() - 1;
  for (;;) {
    const std::size_t middle = (low + high) / 2;
    if (item->getName() < sorted[middle]->getName()) {
      if (low >= middle) {
        return static_cast<unsigned int>(low);
      }
      high = middle - 1;
    } else {
      if (high <= middle) {
        return static_cast<unsigned int>(high + 1);
      }
      low = middle + 1;
    }
  }
}

template <typename Named>
bool insertSorted(std::vector<Named*>& sorted, Named* item) {
  return item != nullptr && withinMemory([&] {
           sorted.insert(sorted.begin() + static_cast<std::ptrdiff_t>(insertPosition(sorted, item)), item);
         });
}

}  // namespace

KxWildcardNode::KxWildcardNode(KxStringtable* table, const KxIndexedString* label)
    : KxLockableClass(table != nullptr),
      KxIndexedStringNamedClass(table, label),
      _childrenIndexed(false),
      _wildcardChild(nullptr),
      _leavesIndexed(false),
      _wildcardLeaf(nullptr) {}

KxWildcardNode::~KxWildcardNode() {
  for (KxWildcardNode* child : _children) {
    delete child;
  }
  delete _wildcardChild;
  for (KxListedEmailAddress* leaf : _leaves) {
    destroyLeaf(leaf);
  }
  if (_wildcardLeaf != nullptr) {
    destroyLeaf(_wildcardLeaf);
  }
}

void KxWildcardNode::lock() {
  _lock();
  _childrenIndexed = allIndexed(_children);
  _leavesIndexed = allIndexed(_leaves);
}

bool KxWildcardNode::addAddressPattern(const char* address, KxEmailBelongsTo kind, const char* annotation,
                                       std::string* owner) {
  if (address == nullptr) {
    return false;
  }
  bool added = false;
  withinMemory([&] {
    const std::string text = loweredText(address);
    const KxIndexedString fullAddress(text.c_str());
    ParsedAddress parsed(_stringtable, text.c_str());
    added = parsed.isComplete() &&
            addAddressPattern(&fullAddress, &parsed.localPart(), parsed.labels(), kind, annotation, owner);
  });
  return added;
}

bool KxWildcardNode::addAddressPattern(const KxIndexedString* fullAddress, const KxIndexedString* name,
                                       LabelStack& labels, KxEmailBelongsTo kind, const char* annotation,
                                       std::string* owner) {
  ConsumedLabel consumed(labels);
  if (!_matchesThisNode(labels, consumed.receiver())) {
    return false;
  }
  bool added = false;
  if (labels.empty()) {
    added = _addOrModifyLeaf(name, fullAddress, kind, annotation, owner);
  } else if (KxWildcardNode* child = childFor(orEmpty(labels.top()))) {
    added = child->addAddressPattern(&orEmpty(fullAddress), &orEmpty(name), labels, kind, annotation, owner);
  }
  return consumed.putBack() && added;
}

KxWildcardNode* KxWildcardNode::childFor(const KxIndexedString& label) {
  if (isWildcard(label.getString())) {
    if (_wildcardChild == nullptr) {
      _wildcardChild = new (std::nothrow) KxWildcardedWildcardNode(_stringtable);
    }
    return _wildcardChild;
  }
  if (KxWildcardNode* child = _findMatchingChild(label)) {
    return child;
  }
  std::unique_ptr<KxWildcardNode> child(new (std::nothrow) KxWildcardNode(_stringtable, &label));
  if (child == nullptr || child->getName() != label || !_addToChildVector(child.get())) {
    return nullptr;
  }
  return child.release();
}

KxWildcardNode* KxWildcardNode::_findMatchingChild(const KxIndexedString& label) {
  return isUnknown(label, _childrenIndexed) ? nullptr : binarySearchInPointerVector(_children, label);
}

bool KxWildcardNode::_matchWildcard(const KxIndexedString& /*label*/) {
  return _wildcardChild != nullptr;
}

KxListedEmailAddress* KxWildcardNode::_findMatchingLeafNode(const KxIndexedString& name, bool atEnd) {
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

bool KxWildcardNode::_addToLeafVector(KxListedEmailAddress* leaf) {
  return insertSorted(_leaves, leaf);
}

bool KxWildcardNode::_addToChildVector(KxWildcardNode* child) {
  return insertSorted(_children, child);
}

bool KxWildcardNode::_addOrModifyLeaf(const KxIndexedString* name, const KxIndexedString* fullAddress,
                                      KxEmailBelongsTo kind, const char* annotation, std::string* owner) {
  const bool anyName = isWildcard(orEmpty(name).getString());
  KxListedEmailAddress* leaf =
      anyName ? wildcardLeafFor(orEmpty(fullAddress)) : leafFor(orEmpty(name), orEmpty(fullAddress));
  if (leaf == nullptr || (annotation != nullptr && !leaf->setAnnotation(annotation))) {
    return false;
  }
  // Owners are kept at wildcard leaves only; policies are not related to single addresses.
  if (anyName && owner != nullptr) {
    if (!leaf->addRelatedPolicyOwner(owner)) {
      return false;
    }
  } else if (anyName) {
    leaf->setOwnerless();
  }
  return leaf->addMembership(kind);
}

KxListedEmailAddress* KxWildcardNode::leafFor(const KxIndexedString& name, const KxIndexedString& fullAddress) {
  if (KxListedEmailAddress* leaf = _findMatchingLeafNode(name, true)) {
    return leaf;
  }
  KxListedEmailAddress* leaf = new (std::nothrow) KxListedEmailAddress(_stringtable, &fullAddress, &name);
  if (leaf == nullptr) {
    return nullptr;
  }
  if (!isWhole(*leaf, name, fullAddress) || !_addToLeafVector(leaf)) {
    destroyLeaf(leaf);
    return nullptr;
  }
  return leaf;
}

KxListedEmailAddress* KxWildcardNode::wildcardLeafFor(const KxIndexedString& fullAddress) {
  if (_wildcardLeaf != nullptr) {
    return _wildcardLeaf;
  }
  KxWildcardedEmailAddress* leaf = new (std::nothrow) KxWildcardedEmailAddress(_stringtable, &fullAddress);
  if (leaf == nullptr) {
    return nullptr;
  }
  if (!isWhole(*leaf, KxStringtable::_theWildcardIndexedString, fullAddress)) {
    delete leaf;
    return nullptr;
  }
  return _wildcardLeaf = leaf;
}

std::vector<KxListedEmailAddress*>& KxWildcardNode::findMatches(const char* address,
                                                                std::vector<KxListedEmailAddress*>& out) {
  findAllMatches(address, out);
  return out;
}

void KxWildcardNode::findMatches(const KxIndexedString* name, LabelStack& labels,
                                 std::vector<KxListedEmailAddress*>& out) {
  const std::size_t before = out.size();
  if (!withinMemory([&] { searchLevel(orEmpty(name), labels, out); })) {
    PolicyLog::log(LogLevel::Error, "KxWildcardNode::findMatches: out of memory; no match is reported for %s",
                   orEmpty(name).getString());
    out.resize(before);
  }
}

bool KxWildcardNode::findAllMatches(const char* address, std::vector<KxListedEmailAddress*>& out) {
  if (address == nullptr) {
    return true;
  }
  const std::size_t before = out.size();
  bool complete = false;
  withinMemory([&] {
    const std::string text = loweredText(address);
    ParsedAddress parsed(_stringtable, text.c_str());
    if (parsed.isComplete()) {
      searchLevel(parsed.localPart(), parsed.labels(), out);
      complete = true;
    }
  });
  if (!complete) {
    PolicyLog::log(LogLevel::Error, "KxWildcardNode::findMatches: out of memory; no match is reported for %s", address);
    out.resize(before);
  }
  return complete;
}

void KxWildcardNode::searchLevel(const KxIndexedString& name, LabelStack& labels,
                                 std::vector<KxListedEmailAddress*>& out) {
  ConsumedLabel consumed(labels);
  if (!_matchesThisNode(labels, consumed.receiver())) {
    return;
  }
  const bool atEnd = labels.empty();
  if (!atEnd) {
    // The levels below put their labels back: the top stays the same.
    const KxIndexedString& label = orEmpty(labels.top());
    if (KxWildcardNode* child = _findMatchingChild(label)) {
      child->searchLevel(name, labels, out);
    }
    if (_matchWildcard(label)) {
      _wildcardChild->searchLevel(name, labels, out);
    }
  }
  if (KxListedEmailAddress* leaf = _findMatchingLeafNode(name, atEnd)) {
    out.push_back(leaf);
  }
  if (_matchLeafWildcard(name, atEnd)) {
    out.push_back(_wildcardLeaf);
  }
  // The levels above go on with their own labels only while the stack is whole.
  if (!consumed.putBack()) {
    throw std::bad_alloc();
  }
}

KxWildcardedWildcardNode::KxWildcardedWildcardNode(KxStringtable* table)
    : KxWildcardNode(table, &KxStringtable::_theWildcardIndexedString) {}

KxWildcardedWildcardNode::~KxWildcardedWildcardNode() = default;

bool KxWildcardedWildcardNode::addAddressPattern(const KxIndexedString* fullAddress, const KxIndexedString* name,
                                                 LabelStack& labels, KxEmailBelongsTo kind, const char* annotation,
                                                 std::string* owner) {
  ConsumedLabel consumed(labels);
  if (!_matchesThisNode(labels, consumed.receiver())) {
    return false;
  }
  // The labels that are left are covered by the wildcard.
  const bool added = _addOrModifyLeaf(name, fullAddress, kind, annotation, owner);
  return consumed.putBack() && added;
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
    : KxWildcardNode(table, &KxStringtable::_theEmptyIndexedString) {}

KxWildcardRootNode::~KxWildcardRootNode() = default;

bool KxWildcardRootNode::_matchesThisNode(LabelStack& /*labels*/, const KxIndexedString*& consumed) {
  consumed = nullptr;
  return true;
}

unsigned int findInsertPosi(const std::vector<KxWildcardNode*>& sorted, KxWildcardNode* item) {
  return insertPosition(sorted, item);
}

unsigned int findInsertPosi(const std::vector<KxListedEmailAddress*>& sorted, KxListedEmailAddress* item) {
  return insertPosition(sorted, item);
}
