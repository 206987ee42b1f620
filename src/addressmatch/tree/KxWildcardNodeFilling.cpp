// How a tree takes patterns in.
#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <string>

#include "KxWildcardNode.h"
#include "addressmatch/intern/Handles.h"
#include "addressmatch/intern/InternedTexts.h"
#include "addressmatch/intern/LibraryLifetime.h"
#include "addressmatch/intern/ParsedAddress.h"
#include "addressmatch/text/AddressText.h"
#include "addressmatch/text/LowerCaseText.h"
#include "addressmatch/text/Memory.h"
#include "addressmatch/text/Prefetch.h"
#include "addressmatch/tree/Descent.h"
#include "addressmatch/tree/ExactType.h"
#include "addressmatch/tree/FillingPattern.h"
#include "addressmatch/tree/GrowingLevel.h"
#include "addressmatch/tree/LevelFilling.h"
#include "addressmatch/tree/TreeState.h"

using namespace zaro_addressmatch;

namespace {

// As many as a level can count.
constexpr unsigned int kMostElements = 0x7FFFFFFFu;

// Cuts the last label off the text between `domain` and `end`, which moves before the dot. Returns the label.
const char* cutLastLabel(char* domain, char*& end) {
  char* label = end;
  while (label != domain && label[-1] != '.') {
    --label;
  }
  end = label != domain ? label - 1 : domain;
  *end = label != domain ? '\0' : *end;
  return label;
}

// Whether memory sufficed for all that makes the leaf what it shall be.
bool isWhole(const KxListedEmailAddress& leaf, const KxIndexedString& name, const KxIndexedString& fullAddress) {
  return leaf.getWeight() != 0 && leaf.getName() == name && leaf.getFullAddress() == fullAddress;
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

template <typename Named>
Named* LevelFilling::find(KxWildcardNode& level, const std::vector<Named*>& elements,
                          GrowingLevel<Named> (KxWildcardNode::*growing)(), const KxIndexedString& name) {
  if (level._filling == nullptr && elements.size() > GrowingLevel<Named>::kMany) {
    level._filling.reset(new (std::nothrow) LevelFilling);
  }
  return (level.*growing)().find(name, level._stringtable == nullptr);
}

template <typename Named>
bool LevelFilling::take(KxWildcardNode& level, std::vector<Named*>& elements,
                        GrowingLevel<Named> (KxWildcardNode::*growing)(), Named* element) {
  if (element == nullptr) {
    return false;
  }
  TreeState* const tree = level._tree;
  if (tree != nullptr) {
    tree->takesIn(element);
    tree->needsWalk = tree->needsWalk || (!tree->isFrozen && !GrowingLevel<Named>::canTake(*element, level._stringtable));
  }
  const bool waits =
      level.isFilling() && elements.size() < kMostElements && withinMemory([&] { (level.*growing)().append(element); });
  if (waits) {
    return true;
  }
  level.settle();
  level._filling.reset();
  if (!insertSorted(elements, element)) {
    return false;
  }
  level.noteSorted();
  return true;
}

bool KxWildcardNode::addAddressPattern(const char* address, KxEmailBelongsTo kind, const char* annotation,
                                       std::string* owner) {
  if (address == nullptr || isGone(_stringtable)) {
    return false;
  }
  bool added = false;
  withinMemory([&] {
    if (isFilling() && _tree->root == this) {
      FillingPattern pattern(address);
      prepare(pattern);
      prefetchLevel(pattern.domain);
      added = add(pattern, kind, annotation, owner);
      return;
    }
    LowerCaseText text(address);
    const KxIndexedString fullAddress(text.get());
    ParsedAddress parsed(_stringtable, text.get());
    added = parsed.isComplete() &&
            addAddressPattern(&fullAddress, &parsed.localPart(), parsed.labels(), kind, annotation, owner);
  });
  return added;
}

std::size_t KxWildcardNode::addAddressPatterns(const char* const* addresses, std::size_t count, KxEmailBelongsTo kind,
                                               const char* annotation, std::string* owner, bool* added) {
  // So many go side by side, so that the processor fetches what they need side by side.
  constexpr std::size_t kTogether = 24;
  std::size_t addedCount = 0;
  for (std::size_t first = 0; first < count; first += kTogether) {
    const std::size_t size = std::min(count - first, kTogether);
    std::optional<FillingPattern> patterns[kTogether];
    if (!isGone(_stringtable) && isFilling() && _tree->root == this) {
      withinMemory([&] {
        for (std::size_t i = 0; i != size; ++i) {
          if (first + i + kTogether < count) {
            prefetchLine(addresses[first + i + kTogether]);
          }
          if (addresses[first + i] != nullptr) {
            prepare(patterns[i].emplace(addresses[first + i]));
          }
        }
      });
      for (std::size_t i = 0; i != size; ++i) {
        if (patterns[i].has_value()) {
          prefetchLevel(patterns[i]->domain);
        }
      }
    }
    for (std::size_t i = 0; i != size; ++i) {
      bool isAdded = false;
      if (patterns[i].has_value() && isFilling()) {
        withinMemory([&] { isAdded = add(*patterns[i], kind, annotation, owner); });
      } else {
        isAdded = addAddressPattern(addresses[first + i], kind, annotation, owner);
      }
      addedCount += isAdded ? 1 : 0;
      if (added != nullptr) {
        added[first + i] = isAdded;
      }
    }
  }
  return addedCount;
}

void KxWildcardNode::prepare(FillingPattern& pattern) {
  _tree->domains.prefetch(pattern.domain.key);
  if (_stringtable == nullptr) {
    return;
  }
  const InternedTexts& entries = _stringtable->ownEntries();
  const LowerCaseText& text = pattern.text;
  pattern.fullAddress = entries.keyOf(text.get(), text.size(), text.words());
  entries.prefetch(pattern.fullAddress);
  if (!pattern.isBare && !pattern.isAnyName()) {
    pattern.name = entries.keyOf(text.get(), pattern.nameSize, text.words());
    entries.prefetch(pattern.name);
  }
}

void KxWildcardNode::prefetchLevel(PatternDomain& domain) const {
  domain.level = domain.key.isThere() ? _tree->domains.find(domain.key) : nullptr;
  if (domain.level != nullptr) {
    prefetchParts(*domain.level);
  } else if (_stringtable != nullptr && _stringtable->_entries != nullptr) {
    // It has most probably one label that is new.
    const InternedTexts& entries = *_stringtable->_entries;
    entries.prefetch(entries.keyOf(domain.text(), std::strcspn(domain.text(), ".")));
  }
}

// As for a split pattern, but for the stack.
bool KxWildcardNode::add(FillingPattern& pattern, KxEmailBelongsTo kind, const char* annotation, std::string* owner) {
  const KxIndexedString fullAddress(pattern.text.get());
  if (pattern.isBare) {
    // A bare text is its own top-level label, above an empty one.
    _tree->hasOnlyPatterns = false;
    KxWildcardNode* node = childFor(fullAddress);
    node = node != nullptr ? node->childFor(KxIndexedString("")) : nullptr;
    return node != nullptr && node->_addOrModifyLeaf(&fullAddress, &fullAddress, kind, annotation, owner);
  }
  KxWildcardNode* node = levelOf(pattern.domain);
  if (node == nullptr) {
    return false;
  }
  if (pattern.name.text == nullptr) {
    return addByHandles(*node, pattern, kind, annotation, owner);
  }
  *pattern.at = '\0';
  const KxStringtable::Interned name = intern(pattern.name);
  *pattern.at = '@';
  if (KxListedEmailAddress* leaf = name.entry != nullptr ? leafOf(*node, name, pattern) : nullptr) {
    return (annotation == nullptr || leaf->setAnnotation(annotation)) && leaf->addMembership(kind);
  }
  // The table cannot take a text in: a leaf may have copies of its own.
  return addByHandles(*node, pattern, kind, annotation, owner);
}

bool KxWildcardNode::addByHandles(KxWildcardNode& level, const FillingPattern& pattern, KxEmailBelongsTo kind,
                                  const char* annotation, std::string* owner) {
  const std::string name(pattern.text.get(), pattern.nameSize);
  const KxIndexedString nameHandle(name.c_str());
  const KxIndexedString fullAddress(pattern.text.get());
  return level._addOrModifyLeaf(&nameHandle, &fullAddress, kind, annotation, owner);
}

// The level of a domain, made if need be; null when it cannot be made. Throws std::bad_alloc.
KxWildcardNode* KxWildcardNode::levelOf(const PatternDomain& domain) {
  KxWildcardNode* node = domain.level;
  if (node == nullptr && domain.key.isThere()) {
    node = _tree->domains.find(domain.key);
  }
  if (node == nullptr) {
    node = levelBelow(domain);
  }
  if (node == nullptr || domain.isBelow) {
    return node != nullptr ? node->childFor(KxStringtable::_theWildcardIndexedString) : nullptr;
  }
  return node;
}

// The level that the domain's key tells, or of all of a domain without a key; by a walk.
KxWildcardNode* KxWildcardNode::levelBelow(const PatternDomain& domain) {
  LowerCaseText pieces(domain.text());
  KxWildcardNode* node = this;
  for (char* end = pieces.get() + pieces.size(); node != nullptr;) {
    const char* label = cutLastLabel(pieces.get(), end);
    if (isWildcard(label)) {
      return node->childFor(KxStringtable::_theWildcardIndexedString);
    }
    node = node->childOf(domain.keyFrom(static_cast<std::size_t>(label - pieces.get())), label);
    if (label == pieces.get()) {
      break;
    }
  }
  return node;
}

// The child for a label, made if need be; null when it cannot be made. Throws std::bad_alloc.
KxWildcardNode* KxWildcardNode::childOf(const DomainKey& domain, const char* label) {
  if (!domain.isThere()) {
    return childFor(KxIndexedString(label));
  }
  DomainMap& known = _tree->domains;
  KxWildcardNode* child = known.find(domain);
  if (child == nullptr) {
    known.reserveOne();
    child = _tree->hasOnlyPatterns ? newChild(KxIndexedString(label)) : childFor(KxIndexedString(label));
    if (child != nullptr) {
      known.add(domain, child);
    }
  }
  return child;
}

bool KxWildcardNode::addAddressPattern(const KxIndexedString* fullAddress, const KxIndexedString* name,
                                       LabelStack& labels, KxEmailBelongsTo kind, const char* annotation,
                                       std::string* owner) {
  bool added = false;
  bool whole = false;
  withinMemory([&] {
    if (_tree != nullptr) {
      _tree->hasOnlyPatterns = false;
    }
    Descent descent(labels);
    KxWildcardNode* node = this;
    while (descent.enter(*node)) {
      if (labels.empty()) {
        added = node->_addOrModifyLeaf(name, fullAddress, kind, annotation, owner);
        break;
      }
      node = node->childFor(orEmpty(labels.top()));
      if (node == nullptr) {
        break;
      }
      if (!isExactly<KxWildcardNode>(*node)) {
        // It has its own way to add.
        added = node->addAddressPattern(&orEmpty(fullAddress), &orEmpty(name), labels, kind, annotation, owner);
        break;
      }
    }
    whole = descent.climbOut();
  });
  return whole && added;
}

KxWildcardNode* KxWildcardNode::childFor(const KxIndexedString& label) {
  if (isWildcard(label.getString())) {
    if (_wildcardChild == nullptr) {
      _wildcardChild = new (std::nothrow) KxWildcardedWildcardNode(_stringtable);
      if (_wildcardChild != nullptr && _tree != nullptr) {
        _tree->takesIn(_tree->expected);
        _wildcardChild->_tree = _tree;
      }
    }
    return _wildcardChild;
  }
  KxWildcardNode* stored = storedChild(label);
  return stored != nullptr ? stored : newChild(label);
}

KxWildcardNode* KxWildcardNode::newChild(const KxIndexedString& label) {
  std::unique_ptr<KxWildcardNode> child(new (std::nothrow) KxWildcardNode(_stringtable, &label));
  if (child == nullptr || child->getName() != label || !takeChild(child.get())) {
    return nullptr;
  }
  return child.release();
}

KxStringtable::Interned KxWildcardNode::intern(const TextKey& key) {
  const KxIndexedString wanted(key.text);
  const KxStringtable::Interned interned = _stringtable->intern(key, wanted);
  if (interned.entry == nullptr && interned.isNew) {
    _stringtable->_dropBorrowed(wanted);
  }
  return interned;
}

void KxWildcardNode::sortIn() {
  growingChildren().settle();
  growingLeaves().settle();
  noteSorted();
}

void KxWildcardNode::noteSorted() {
  _childrenSorted = _children.size() & kMostElements;
  _leavesSorted = _leaves.size() & kMostElements;
}

GrowingLevel<KxWildcardNode> KxWildcardNode::growingChildren() {
  return {_children, _childrenSorted, _filling != nullptr ? &_filling->children : nullptr};
}

GrowingLevel<KxListedEmailAddress> KxWildcardNode::growingLeaves() {
  return {_leaves, _leavesSorted, _filling != nullptr ? &_filling->leaves : nullptr};
}

// A level that somebody made with a way of its own to find things is always asked.
bool KxWildcardNode::isFilling() const {
  return _tree != nullptr && !_tree->needsWalk && !_tree->isFrozen &&
         (_stringtable == nullptr || !_stringtable->isLocked()) &&
         (_tree->root != this || isExactly<KxWildcardRootNode>(*this));
}

KxWildcardNode* KxWildcardNode::storedChild(const KxIndexedString& label) {
  if (!isFilling() || label.getString() == nullptr) {
    return _findMatchingChild(label);
  }
  const KxIndexedString* name = _stringtable != nullptr ? _stringtable->_findInStringtable(&label) : &label;
  return name != nullptr ? LevelFilling::find(*this, _children, &KxWildcardNode::growingChildren, *name) : nullptr;
}

KxListedEmailAddress* KxWildcardNode::storedLeaf(const KxIndexedString& name) {
  if (!isFilling() || name.getString() == nullptr) {
    return _findMatchingLeafNode(name, true);
  }
  const KxIndexedString* entry = _stringtable != nullptr ? _stringtable->_findInStringtable(&name) : &name;
  return entry != nullptr ? LevelFilling::find(*this, _leaves, &KxWildcardNode::growingLeaves, *entry) : nullptr;
}

bool KxWildcardNode::takeChild(KxWildcardNode* child) {
  child->_tree = _tree;
  const TreeState::Expectation expectation(_tree, child);
  return _addToChildVector(child);
}

bool KxWildcardNode::takeLeaf(KxListedEmailAddress* leaf) {
  const TreeState::Expectation expectation(_tree, leaf);
  return _addToLeafVector(leaf);
}

bool KxWildcardNode::_addToLeafVector(KxListedEmailAddress* leaf) {
  return LevelFilling::take(*this, _leaves, &KxWildcardNode::growingLeaves, leaf);
}

bool KxWildcardNode::_addToChildVector(KxWildcardNode* child) {
  return LevelFilling::take(*this, _children, &KxWildcardNode::growingChildren, child);
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
  if (KxListedEmailAddress* leaf = storedLeaf(name)) {
    return leaf;
  }
  if (_tree != nullptr && _stringtable != nullptr) {
    _tree->hasOnlyPatterns = false;
  }
  KxListedEmailAddress* leaf = new (std::nothrow) KxListedEmailAddress(_stringtable, &fullAddress, &name);
  if (leaf == nullptr) {
    return nullptr;
  }
  if (!isWhole(*leaf, name, fullAddress) || !takeLeaf(leaf)) {
    destroyLeaf(leaf);
    return nullptr;
  }
  return leaf;
}

KxListedEmailAddress* KxWildcardNode::leafOf(KxWildcardNode& level, const KxStringtable::Interned& name,
                                             const FillingPattern& pattern) {
  const bool isConcrete = pattern.domain.key.isThere() && !pattern.domain.isBelow;
  // Then an address that was not there tells that its leaf is not, without a look at the level.
  const bool addressTells = isConcrete && _tree->hasOnlyPatterns;
  KxStringtable::Interned fullAddress = {nullptr, true};
  if (!name.isNew && addressTells) {
    fullAddress = intern(pattern.fullAddress);
    if (fullAddress.entry == nullptr) {
      return nullptr;
    }
  }
  if (!name.isNew && !(addressTells && fullAddress.isNew)) {
    if (auto* stored = LevelFilling::find(level, level._leaves, &KxWildcardNode::growingLeaves, *name.entry)) {
      return stored;
    }
  }
  if (fullAddress.entry == nullptr) {
    fullAddress = intern(pattern.fullAddress);
    if (fullAddress.entry == nullptr) {
      return nullptr;
    }
  }
  prefetchLine(level._leaves.data() + level._leaves.size());
  auto* leaf = new (_tree->leafArena.allocate()) KxListedEmailAddress(*_stringtable, *fullAddress.entry, *name.entry,
                                                                      isConcrete ? pattern.domain.key.labelCount() : 0);
  if (!level.takeLeaf(leaf)) {
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
  if (_tree != nullptr) {
    _tree->takesIn(_tree->expected);
  }
  return _wildcardLeaf = leaf;
}

unsigned int findInsertPosi(const std::vector<KxWildcardNode*>& sorted, KxWildcardNode* item) {
  return insertPosition(sorted, item);
}

unsigned int findInsertPosi(const std::vector<KxListedEmailAddress*>& sorted, KxListedEmailAddress* item) {
  return insertPosition(sorted, item);
}
