#include "addressmatch/tree/TreeFilling.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <string>

#include "addressmatch/intern/Handles.h"
#include "addressmatch/intern/InternedTexts.h"
#include "addressmatch/intern/LibraryLifetime.h"
#include "addressmatch/intern/ParsedAddress.h"
#include "addressmatch/leaf/PatternWeight.h"
#include "addressmatch/text/AddressText.h"
#include "addressmatch/text/LowerCaseText.h"
#include "addressmatch/text/Memory.h"
#include "addressmatch/text/Prefetch.h"
#include "addressmatch/tree/Descent.h"
#include "addressmatch/tree/ExactType.h"

namespace zaro_addressmatch {

namespace {

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

// Whether memory sufficed for everything that the leaf consists of.
bool isWhole(const KxListedEmailAddress& leaf, const KxIndexedString& name, const KxIndexedString& fullAddress) {
  return leaf.getWeight() != 0 && leaf.getName() == name && leaf.getFullAddress() == fullAddress;
}

}  // namespace

bool TreeFilling::canAddByText() const {
  return m_top.isFilling() && m_top.tree()->root() == &m_top.node();
}

bool TreeFilling::add(const char* address, const PatternData& data) const {
  if (address == nullptr || isGone(m_top.table())) {
    return false;
  }
  bool added = false;
  withinMemory([&] {
    if (canAddByText()) {
      PatternPieces pattern(address);
      prefetchPieces(pattern);
      prefetchLevel(pattern.domain);
      added = addByText(pattern, data);
      return;
    }
    LowerCaseText text(address);
    const KxIndexedString fullAddress(text.get());
    const bool isRoot = m_top.tree() != nullptr && m_top.tree()->root() == &m_top.node();
    const TreeState::Addition addition(isRoot ? m_top.tree() : nullptr, text.get(), text.size());
    ParsedAddress parsed(m_top.table(), text.get());
    added = parsed.isComplete() && m_top.node().addAddressPattern(&fullAddress, &parsed.localPart(), parsed.labels(),
                                                                  data.kind, data.annotation, data.owner);
  });
  return added;
}

std::size_t TreeFilling::addEach(const char* const* addresses, std::size_t count, const PatternData& data,
                                 bool* added) const {
  // So many go through each step together, so that their cache misses overlap.
  constexpr std::size_t kTogether = 24;
  std::size_t addedCount = 0;
  for (std::size_t first = 0; first < count; first += kTogether) {
    const std::size_t size = std::min(count - first, kTogether);
    std::optional<PatternPieces> patterns[kTogether];
    if (!isGone(m_top.table()) && canAddByText()) {
      withinMemory([&] {
        for (std::size_t i = 0; i != size; ++i) {
          if (first + i + kTogether < count) {
            prefetchLine(addresses[first + i + kTogether]);
          }
          if (addresses[first + i] != nullptr) {
            prefetchPieces(patterns[i].emplace(addresses[first + i]));
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
      if (patterns[i].has_value() && m_top.isFilling()) {
        withinMemory([&] { isAdded = addByText(*patterns[i], data); });
      } else {
        isAdded = add(addresses[first + i], data);
      }
      addedCount += isAdded ? 1 : 0;
      if (added != nullptr) {
        added[first + i] = isAdded;
      }
    }
  }
  return addedCount;
}

// Hashes the pieces, and prefetches the slots where they are looked up.
inline void TreeFilling::prefetchPieces(PatternPieces& pattern) const {
  m_top.tree()->domains().prefetch(pattern.domain.key);
  if (m_top.table() == nullptr) {
    return;
  }
  const Interner interner(*m_top.table());
  const bool isLocked = m_top.table()->isLocked();
  // A locked table is read by any number of threads: not even its first entry is made.
  const InternedTexts& texts = isLocked ? m_top.tree()->ownTexts().texts() : interner.entries();
  const InternedTexts* entries = isLocked ? interner.entriesOrNull() : nullptr;
  const auto prefetch = [&texts, entries](const TextKey& key) {
    texts.prefetch(key);
    if (entries != nullptr) {
      entries->prefetch(key);
    }
  };
  const LowerCaseText& text = pattern.text;
  pattern.fullAddress = texts.keyOf(text.get(), text.size(), text.words());
  prefetch(pattern.fullAddress);
  if (!pattern.isBare && !pattern.isAnyName()) {
    pattern.name = texts.keyOf(text.get(), pattern.nameSize, text.words());
    prefetch(pattern.name);
  }
}

// Looks the level of the domain up, and prefetches it.
inline void TreeFilling::prefetchLevel(PatternDomain& domain) const {
  domain.level = domain.key.isThere() ? m_top.tree()->domains().find(domain.key) : nullptr;
  if (domain.level != nullptr) {
    Level::prefetchNode(*domain.level);
    return;
  }
  const InternedTexts* entries = m_top.table() != nullptr ? Interner(*m_top.table()).entriesOrNull() : nullptr;
  if (entries != nullptr) {
    // Most domains without a level have one new label, the first.
    entries->prefetch(entries->keyOf(domain.text(), std::strcspn(domain.text(), ".")));
  }
}

bool TreeFilling::addByText(PatternPieces& pattern, const PatternData& data) const {
  if (pattern.isBare) {
    return addBareText(pattern, data);
  }
  KxWildcardNode* node = levelOf(pattern.domain);
  if (node == nullptr) {
    return false;
  }
  if (pattern.isAnyName() && pattern.fullAddress.text != nullptr) {
    if (KxListedEmailAddress* leaf = wildcardLeafOf(Level(*node), pattern)) {
      return amend(*leaf, true, data);
    }
  }
  if (pattern.name.text == nullptr) {
    return addByHandles(*node, pattern, data);
  }
  *pattern.at = '\0';
  const Interner::Interned name = internOwned(pattern.name);
  *pattern.at = '@';
  if (KxListedEmailAddress* leaf = name.entry != nullptr ? leafOf(Level(*node), name, pattern) : nullptr) {
    return amend(*leaf, false, data);
  }
  // The table has no memory for a text: a leaf may have copies of its own.
  return addByHandles(*node, pattern, data);
}

// A bare text is its own top-level label, above an empty one.
bool TreeFilling::addBareText(const PatternPieces& pattern, const PatternData& data) const {
  m_top.tree()->mixIn();
  const KxIndexedString text(pattern.text.get());
  const KxIndexedString empty("");
  KxWildcardNode* node = childWith(m_top, asParsed(text));
  node = node != nullptr ? childWith(Level(*node), asParsed(empty)) : nullptr;
  return node != nullptr && node->_addOrModifyLeaf(&asParsed(text), &text, data.kind, data.annotation, data.owner);
}

bool TreeFilling::addByHandles(KxWildcardNode& level, const PatternPieces& pattern, const PatternData& data) const {
  const std::string name(pattern.text.get(), pattern.nameSize);
  const KxIndexedString nameHandle(name.c_str());
  const KxIndexedString fullAddress(pattern.text.get());
  return level._addOrModifyLeaf(&asParsed(nameHandle), &fullAddress, data.kind, data.annotation, data.owner);
}

// The handle that parsing gives for a text. A level that was locked by hand finds what the locked table has by its
// entry only; while the table is open, levels look a text up by themselves.
const KxIndexedString& TreeFilling::asParsed(const KxIndexedString& text) const {
  const KxStringtable* table = m_top.table();
  const KxIndexedString* entry = table != nullptr && table->isLocked() ? table->_findInStringtable(&text) : nullptr;
  return entry != nullptr ? *entry : text;
}

// The level of a domain, made if need be; null when it cannot be made.
KxWildcardNode* TreeFilling::levelOf(const PatternDomain& domain) const {
  KxWildcardNode* node = domain.level;
  if (node == nullptr && domain.key.isThere()) {
    node = m_top.tree()->domains().find(domain.key);
  }
  if (node == nullptr) {
    node = walkTo(domain);
  }
  return node != nullptr && domain.isBelow ? wildcardChildOf(Level(*node)) : node;
}

// The same, label by label from the top-level one on. Without the wildcard below a domain that has a key.
KxWildcardNode* TreeFilling::walkTo(const PatternDomain& domain) const {
  LowerCaseText pieces(domain.text());
  KxWildcardNode* node = &m_top.node();
  for (char* end = pieces.get() + pieces.size(); node != nullptr;) {
    const char* label = cutLastLabel(pieces.get(), end);
    if (isWildcard(label)) {
      return wildcardChildOf(Level(*node));
    }
    node = childOfDomain(Level(*node), domain.keyFrom(static_cast<std::size_t>(label - pieces.get())), label);
    if (label == pieces.get()) {
      break;
    }
  }
  return node;
}

// The child for a label, which is the level of a whole domain.
KxWildcardNode* TreeFilling::childOfDomain(Level level, const DomainKey& domain, const char* label) const {
  const KxIndexedString text(label);
  if (!domain.isThere()) {
    return childWith(level, asParsed(text));
  }
  TreeState& tree = *m_top.tree();
  KxWildcardNode* child = tree.domains().find(domain);
  if (child == nullptr) {
    tree.domains().reserveOne();
    child = tree.hasOnlyPatterns() ? newChild(level, asParsed(text)) : childWith(level, asParsed(text));
    if (child != nullptr) {
      tree.domains().add(domain, child);
    }
  }
  return child;
}

KxListedEmailAddress* TreeFilling::leafOf(Level level, const Interner::Interned& name,
                                          const PatternPieces& pattern) const {
  const bool isConcrete = pattern.domain.key.isThere() && !pattern.domain.isBelow;
  // Then the leaf of an address whose text is new is new as well, and the level need not be searched.
  const bool addressTells = isConcrete && m_top.tree()->hasOnlyPatterns();
  Interner::Interned fullAddress = {nullptr, true};
  if (!name.isNew && addressTells) {
    fullAddress = internOwned(pattern.fullAddress);
    if (fullAddress.entry == nullptr) {
      return nullptr;
    }
  }
  if (!name.isNew && !(addressTells && fullAddress.isNew)) {
    if (auto* stored = level.find<KxListedEmailAddress>(*name.entry)) {
      return stored;
    }
  }
  if (fullAddress.entry == nullptr) {
    fullAddress = internOwned(pattern.fullAddress);
    if (fullAddress.entry == nullptr) {
      return nullptr;
    }
  }
  prefetchLine(level.leaves().data() + level.leaves().size());
  auto* leaf = m_top.tree()->arena().make<KxListedEmailAddress>(*m_top.table(), *fullAddress.entry, *name.entry,
                                                                weightOf(pattern));
  return store(level, leaf) ? leaf : nullptr;
}

// The leaf of *@DOMAIN or *@*.DOMAIN; null when the table has no memory for its texts.
KxListedEmailAddress* TreeFilling::wildcardLeafOf(Level level, const PatternPieces& pattern) const {
  if (level.wildcardLeaf() == nullptr) {
    const KxIndexedString* fullAddress = internOwned(pattern.fullAddress).entry;
    const KxIndexedString* name = fullAddress != nullptr ? wildcardIn(m_top) : nullptr;
    if (name != nullptr) {
      level.setWildcardLeaf(
          m_top.tree()->arena().make<KxWildcardedEmailAddress>(*m_top.table(), *fullAddress, *name, weightOf(pattern)));
    }
  }
  return level.wildcardLeaf();
}

unsigned int TreeFilling::weightOf(const PatternPieces& pattern) {
  const PatternDomain& domain = pattern.domain;
  return domain.key.isThere() && !domain.isBelow
             ? zaro_addressmatch::weightOf({!pattern.isAnyName(), false, domain.key.labelCount()})
             : zaro_addressmatch::weightOf(pattern.text.get());
}

bool TreeFilling::addSplit(const KxIndexedString* fullAddress, const KxIndexedString* name, LabelStack& labels,
                           const PatternData& data) const {
  bool added = false;
  bool whole = false;
  withinMemory([&] {
    if (m_top.tree() != nullptr) {
      m_top.tree()->mixIn();
    }
    Descent descent(labels);
    KxWildcardNode* node = &m_top.node();
    while (descent.enter(*node)) {
      if (labels.empty()) {
        added = node->_addOrModifyLeaf(name, fullAddress, data.kind, data.annotation, data.owner);
        break;
      }
      node = childWith(Level(*node), orEmpty(labels.top()));
      if (node == nullptr) {
        break;
      }
      if (!isExactly<KxWildcardNode>(*node)) {
        // It has its own way to add.
        added = node->addAddressPattern(&orEmpty(fullAddress), &orEmpty(name), labels, data.kind, data.annotation,
                                        data.owner);
        break;
      }
    }
    whole = descent.climbOut();
  });
  return whole && added;
}

bool TreeFilling::addLeaf(const KxIndexedString* fullAddress, const KxIndexedString* name, const PatternData& data) const {
  admitHandle(m_top, orEmpty(name));
  admitHandle(m_top, orEmpty(fullAddress));
  const bool anyName = isWildcard(orEmpty(name).getString());
  KxListedEmailAddress* leaf =
      anyName ? wildcardLeafOf(m_top, orEmpty(fullAddress)) : leafWith(m_top, orEmpty(name), orEmpty(fullAddress));
  return leaf != nullptr && amend(*leaf, anyName, data);
}

bool TreeFilling::amend(KxListedEmailAddress& leaf, bool anyName, const PatternData& data) {
  if (data.annotation != nullptr && !leaf.setAnnotation(data.annotation)) {
    return false;
  }
  // Owners are kept at wildcard leaves only; policies are not related to single addresses.
  if (anyName && data.owner != nullptr) {
    if (!leaf.addRelatedPolicyOwner(data.owner)) {
      return false;
    }
  } else if (anyName) {
    leaf.setOwnerless();
  }
  return leaf.addMembership(data.kind);
}

Interner::Interned TreeFilling::intern(Level level, const TextKey& key) {
  const Interner interner(*level.table());
  if (!level.table()->isLocked()) {
    return interner.internOwned(key);
  }
  const InternedTexts* entries = interner.entriesOrNull();
  const KxIndexedString* entry = entries != nullptr ? entries->find(key) : nullptr;
  return entry != nullptr ? Interner::Interned{entry, false} : level.tree()->ownTexts().intern(key);
}

const KxIndexedString* TreeFilling::wildcardIn(Level level) {
  return intern(level, textKeyOf(KxStringtable::_theWildcardIndexedString.getString())).entry;
}

const KxIndexedString* TreeFilling::known(Level level, const KxIndexedString& handle) {
  if (level.table() == nullptr) {
    return &handle;
  }
  const KxIndexedString* entry = level.table()->_findInStringtable(&handle);
  if (entry != nullptr || !level.table()->isLocked()) {
    return entry;
  }
  return level.tree()->ownTexts().find(handle.getString());
}

void TreeFilling::admitHandle(Level level, const KxIndexedString& handle) {
  if (level.isFillingOverLockedTable() && !level.knows(handle)) {
    level.tree()->startWalking();
  }
}

KxWildcardNode* TreeFilling::childWith(Level level, const KxIndexedString& label) {
  admitHandle(level, label);
  if (isWildcard(label.getString())) {
    return wildcardChildOf(level);
  }
  KxWildcardNode* stored = storedChild(level, label);
  return stored != nullptr ? stored : newChild(level, label);
}

KxWildcardNode* TreeFilling::storedChild(Level level, const KxIndexedString& label) {
  if (!level.isFilling() || label.getString() == nullptr) {
    return level.node()._findMatchingChild(label);
  }
  const KxIndexedString* name = known(level, label);
  return name != nullptr ? level.find<KxWildcardNode>(*name) : nullptr;
}

// The label is new to the level.
KxWildcardNode* TreeFilling::newChild(Level level, const KxIndexedString& label) {
  KxWildcardNode* child = makeChild(level, label);
  if (child == nullptr) {
    return nullptr;
  }
  Level(*child).setTree(level.tree());
  const TreeState::Announcement announcement(level.tree(), child);
  if (child->getName() != label || !level.node()._addToChildVector(child)) {
    Level::destroy(child);
    return nullptr;
  }
  return child;
}

KxWildcardNode* TreeFilling::makeChild(Level level, const KxIndexedString& label) {
  if (level.table() == nullptr || !level.isFilling() || label.getString() == nullptr) {
    return new (std::nothrow) KxWildcardNode(level.table(), &label);
  }
  const KxIndexedString* own = intern(level, textKeyOf(label.getString())).entry;
  return own != nullptr ? level.newChild<KxWildcardNode>(*own) : nullptr;
}

KxWildcardNode* TreeFilling::wildcardChildOf(Level level) {
  if (level.wildcardChild() == nullptr) {
    level.setWildcardChild(makeWildcardChild(level));
    if (level.wildcardChild() != nullptr && level.tree() != nullptr) {
      level.tree()->admitOwn();
      Level(*level.wildcardChild()).setTree(level.tree());
    }
  }
  return level.wildcardChild();
}

KxWildcardNode* TreeFilling::makeWildcardChild(Level level) {
  if (level.table() == nullptr || !level.isFilling()) {
    return new (std::nothrow) KxWildcardedWildcardNode(level.table());
  }
  const KxIndexedString* label = wildcardIn(level);
  return label != nullptr ? level.newChild<KxWildcardedWildcardNode>(*label) : nullptr;
}

KxListedEmailAddress* TreeFilling::leafWith(Level level, const KxIndexedString& name, const KxIndexedString& fullAddress) {
  if (KxListedEmailAddress* leaf = storedLeaf(level, name)) {
    return leaf;
  }
  if (level.tree() != nullptr && level.table() != nullptr) {
    level.tree()->mixIn();
  }
  if (level.isFillingOverLockedTable()) {
    if (name.getString() != nullptr && fullAddress.getString() != nullptr) {
      return leafOfOwnTexts(level, name, fullAddress);
    }
    level.tree()->startWalking();  // the leaf's name will be none of the tree's texts
  }
  KxListedEmailAddress* leaf = new (std::nothrow) KxListedEmailAddress(level.table(), &fullAddress, &name);
  if (leaf == nullptr) {
    return nullptr;
  }
  if (!isWhole(*leaf, name, fullAddress)) {
    LeafArena::destroy(leaf);
    return nullptr;
  }
  return store(level, leaf) ? leaf : nullptr;
}

// The same over a locked table, whose level tells names apart by their handles.
KxListedEmailAddress* TreeFilling::leafOfOwnTexts(Level level, const KxIndexedString& name,
                                                  const KxIndexedString& fullAddress) {
  const KxIndexedString* ownName = intern(level, textKeyOf(name.getString())).entry;
  const KxIndexedString* ownAddress =
      ownName != nullptr ? intern(level, textKeyOf(fullAddress.getString())).entry : nullptr;
  KxListedEmailAddress* leaf = nullptr;
  if (ownAddress != nullptr) {
    withinMemory([&] {
      leaf = level.tree()->arena().make<KxListedEmailAddress>(*level.table(), *ownAddress, *ownName,
                                                              zaro_addressmatch::weightOf(ownAddress->getString()));
    });
  }
  return leaf != nullptr && store(level, leaf) ? leaf : nullptr;
}

KxListedEmailAddress* TreeFilling::storedLeaf(Level level, const KxIndexedString& name) {
  if (!level.isFilling() || name.getString() == nullptr) {
    return level.node()._findMatchingLeafNode(name, true);
  }
  const KxIndexedString* own = known(level, name);
  return own != nullptr ? level.find<KxListedEmailAddress>(*own) : nullptr;
}

KxListedEmailAddress* TreeFilling::wildcardLeafOf(Level level, const KxIndexedString& fullAddress) {
  if (level.wildcardLeaf() != nullptr) {
    return level.wildcardLeaf();
  }
  KxWildcardedEmailAddress* leaf = new (std::nothrow) KxWildcardedEmailAddress(level.table(), &fullAddress);
  if (leaf == nullptr) {
    return nullptr;
  }
  if (!isWhole(*leaf, KxStringtable::_theWildcardIndexedString, fullAddress)) {
    LeafArena::destroy(leaf);
    return nullptr;
  }
  if (level.tree() != nullptr) {
    level.tree()->admitOwn();
  }
  level.setWildcardLeaf(leaf);
  return leaf;
}

// Stores a new leaf, or destroys it and answers false.
bool TreeFilling::store(Level level, KxListedEmailAddress* leaf) {
  const TreeState::Announcement announcement(level.tree(), leaf);
  if (level.node()._addToLeafVector(leaf)) {
    return true;
  }
  LeafArena::destroy(leaf);
  return false;
}

}  // namespace zaro_addressmatch
