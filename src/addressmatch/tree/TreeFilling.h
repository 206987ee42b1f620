// How a tree gets its patterns.
//
// A pattern comes as a text or split into handles.
//
//   By text      while the tree is filled over its root, which is the usual way: the level of the domain is found in the
//                map of domains, the texts are interned by keys that are hashed once, the leaf lies in the arena.
//   By handles   whatever the phase: level by level, as `KxWildcardNode`'s virtual operations are overridden or not.
//
// Texts are interned in the table. One that is locked takes no more, and what it lacks is the tree's own (OwnTexts), so that a
// tree of a later generation is filled in the same ways.
//
// Both end in the same leaves. The first one takes the second for what has no key: bare texts, trees without a table, texts
// that the table has no memory for.
//
//   cost   by text three look-ups (domain, local part, full address), each a cache miss in a big tree; patterns that come
//          many at once are prefetched in groups, as in Chen, Ailamaki, Gibbons, Mowry, "Improving Hash Join Performance
//          through Prefetching", ICDE 2004
#pragma once

#include <cstddef>
#include <string>

#include "KxWildcardNode.h"
#include "addressmatch/intern/Interner.h"
#include "addressmatch/intern/LabelStack.h"
#include "addressmatch/tree/Level.h"
#include "addressmatch/tree/PatternPieces.h"

namespace zaro_addressmatch {

// What a pattern brings to its leaf.
struct PatternData {
  KxEmailBelongsTo kind;
  const char* annotation;  // null for none
  std::string* owner;      // null for none
};

// Fills the tree below a level. The operations are those of `KxWildcardNode`; false as there.
class TreeFilling {
 public:
  explicit TreeFilling(KxWildcardNode& top) : m_top(top) {}

  bool add(const char* address, const PatternData& data) const;
  std::size_t addEach(const char* const* addresses, std::size_t count, const PatternData& data, bool* added) const;
  bool addSplit(const KxIndexedString* fullAddress, const KxIndexedString* name, LabelStack& labels,
                const PatternData& data) const;
  // At the top level itself.
  bool addLeaf(const KxIndexedString* fullAddress, const KxIndexedString* name, const PatternData& data) const;

 private:
  // By text. These throw std::bad_alloc.
  bool canAddByText() const;
  void prefetchPieces(PatternPieces& pattern) const;
  void prefetchLevel(PatternDomain& domain) const;
  bool addByText(PatternPieces& pattern, const PatternData& data) const;
  bool addBareText(const PatternPieces& pattern, const PatternData& data) const;
  KxWildcardNode* levelOf(const PatternDomain& domain) const;
  KxWildcardNode* walkTo(const PatternDomain& domain) const;
  KxWildcardNode* childOfDomain(Level level, const DomainKey& domain, const char* label) const;
  Interner::Interned internOwned(const TextKey& key) const { return intern(m_top, key); }
  KxListedEmailAddress* leafOf(Level level, const Interner::Interned& name, const PatternPieces& pattern) const;
  KxListedEmailAddress* wildcardLeafOf(Level level, const PatternPieces& pattern) const;
  static unsigned int weightOf(const PatternPieces& pattern);

  // A text as the tree keeps it while it is filled: an entry of the table, or the tree's own. `known` is null for a
  // text that no name of the level has.
  static Interner::Interned intern(Level level, const TextKey& key);
  static const KxIndexedString* known(Level level, const KxIndexedString& handle);
  // The text "*", likewise; null when memory runs out.
  static const KxIndexedString* wildcardIn(Level level);
  // To be called before a handle of a caller's is taken by its text.
  static void admitHandle(Level level, const KxIndexedString& handle);

  // By handles. The child or leaf is made if need be; null when it cannot be made.
  bool addByHandles(KxWildcardNode& level, const PatternPieces& pattern, const PatternData& data) const;
  const KxIndexedString& asParsed(const KxIndexedString& text) const;
  static KxWildcardNode* childWith(Level level, const KxIndexedString& label);
  static KxWildcardNode* storedChild(Level level, const KxIndexedString& label);
  static KxWildcardNode* newChild(Level level, const KxIndexedString& label);
  static KxWildcardNode* makeChild(Level level, const KxIndexedString& label);
  static KxWildcardNode* wildcardChildOf(Level level);
  static KxWildcardNode* makeWildcardChild(Level level);
  static KxListedEmailAddress* leafWith(Level level, const KxIndexedString& name, const KxIndexedString& fullAddress);
  static KxListedEmailAddress* leafOfOwnTexts(Level level, const KxIndexedString& name,
                                              const KxIndexedString& fullAddress);
  static KxListedEmailAddress* storedLeaf(Level level, const KxIndexedString& name);
  static KxListedEmailAddress* wildcardLeafOf(Level level, const KxIndexedString& fullAddress);
  static bool store(Level level, KxListedEmailAddress* leaf);
  static bool amend(KxListedEmailAddress& leaf, bool anyName, const PatternData& data);

  Level m_top;
};

}  // namespace zaro_addressmatch
