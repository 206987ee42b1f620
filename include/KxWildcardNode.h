// The tree of address patterns: domain labels from right to left, one level each; local parts are the leaves.
//
// A pattern is a local part, "@" and a domain. The local part may be "*"; a domain label may be "*" and then stands for
// one or more labels, whatever the pattern holds to its left. Any other "*" is an ordinary character. Letter case does
// not count (ASCII letters).
//
//   user@example.test     that address only
//   *@example.test        every address of the domain, none of its sub-domains
//   user@*.example.test   user at every sub-domain, not at the domain itself
//   *@*.example.test      every address of every sub-domain
//   user@*                user at any domain
//   *                     every address; the same as *@*
//
// 1. Phases. Make a root (`KxWildcardEmail::makeNewTree`), add every pattern, freeze (`initScanTimeMode`), then match.
//    A floating tree (no string table) is never frozen.
// 2. Threads. Adding patterns, making and destroying trees over a string table touch the table and the lock-on-init
//    queue: one thread at a time for all trees together. A frozen tree may be searched by any number of threads; a tree
//    that is not frozen, by one.
// 3. Ownership. A root owns its whole tree, leaves included; the leaves that a search yields live as long. The string
//    table must outlive the tree. A throw-away tree may be destroyed at any time, frozen or not.
// 4. Nothing here throws. Adding, searching and destroying take no deeper calls for a pattern of more labels.
#pragma once

#include <cstddef>
#include <deque>
#include <memory>
#include <stack>
#include <string>
#include <vector>

#include "KxListedEmailAddress.h"
#include "KxStringtable.h"
#include "ZaroPolicyExport.h"

namespace zaro_addressmatch {
class Level;
struct NameIndexes;
class TreeState;
}  // namespace zaro_addressmatch

class ZARO_POLICY_EXPORT KxWildcardNode : public KxLockableClass, public KxIndexedStringNamedClass {
 public:
  // A split address: the domain labels from left to right, the local part on top.
  using LabelStack = std::stack<const KxIndexedString*, std::deque<const KxIndexedString*>>;

  //   table   where the texts are interned; null makes a floating node
  //   label   the domain label of this level
  KxWildcardNode(KxStringtable* table, const KxIndexedString* label);

  // Freezes this node alone, after its table: notes whether every child's and every leaf's key has a rank.
  void lock() override;

  virtual ~KxWildcardNode();

  // Adds a pattern that is split already, from this level on; leaves the stack as it was. False as below.
  virtual bool addAddressPattern(const KxIndexedString* fullAddress, const KxIndexedString* name, LabelStack& labels,
                                 KxEmailBelongsTo kind, const char* annotation, std::string* owner);
  virtual KxWildcardNode* _findMatchingChild(const KxIndexedString& label);
  virtual bool _matchWildcard(const KxIndexedString& label);
  virtual KxListedEmailAddress* _findMatchingLeafNode(const KxIndexedString& name, bool atEnd);
  virtual bool _matchLeafWildcard(const KxIndexedString& name, bool atEnd);
  // Takes this level's label off the stack; `consumed` is null when the level has none.
  virtual bool _matchesThisNode(LabelStack& labels, const KxIndexedString*& consumed);
  virtual bool _addToLeafVector(KxListedEmailAddress* leaf);
  virtual bool _addToChildVector(KxWildcardNode* child);
  virtual bool _addOrModifyLeaf(const KxIndexedString* name, const KxIndexedString* fullAddress, KxEmailBelongsTo kind,
                                const char* annotation, std::string* owner);

  // Filling: stores a pattern, or adds a kind to the one that is stored.
  //   address      the pattern, any letter case
  //   kind         kinds to add to the leaf; 0 adds none
  //   annotation   replaces the leaf's annotation unless null
  //   owner        appended to the owners of a leaf with local part "*" unless null; not copied
  // False for a null address, a kind that the leaf's state does not allow (the leaf stays) and when memory runs out.
  // After the freeze a pattern that is stored already is refused; one that needs a new node or leaf is stored, joins
  // the queue of the next freeze, and is found unless a frozen level rejects its key as unknown to the table.
  bool addAddressPattern(const char* address, KxEmailBelongsTo kind, const char* annotation, std::string* owner);

  // Filling: as the above for each of many patterns in turn, which is faster.
  //   added   null, or an array for the result of each pattern
  // Returns how many were added.
  std::size_t addAddressPatterns(const char* const* addresses, std::size_t count, KxEmailBelongsTo kind,
                                 const char* annotation = nullptr, std::string* owner = nullptr, bool* added = nullptr);

  // Any phase: appends every stored pattern that contains the address.
  //   address   any letter case; null matches nothing
  //   out       not cleared; the most specific domain first, a concrete local part before "*". Should memory run out,
  //             left as it was, which is logged at level 1.
  // Returns `out`.
  std::vector<KxListedEmailAddress*>& findMatches(const char* address, std::vector<KxListedEmailAddress*>& out);
  // The same; false when memory ran out.
  bool findAllMatches(const char* address, std::vector<KxListedEmailAddress*>& out);
  // The same for many addresses, faster than one by one: appends `out.size()` to `ends` after each.
  bool findAllMatches(const char* const* addresses, std::size_t count, std::vector<KxListedEmailAddress*>& out,
                      std::vector<std::size_t>& ends);
  // The same for an address that is split already: `name` is its local part, `labels` its domain, left as it was.
  void findMatches(const KxIndexedString* name, LabelStack& labels, std::vector<KxListedEmailAddress*>& out);

  // Splits an address or pattern and puts its pieces on the stack as handles that
  // `KxWildcardEmail::cleanupDomainStack` releases. Entries of the table where it has them, wrappers otherwise.
  //   table          null: wrappers only
  //   emailAddress   null puts nothing on the stack
  //   allStrings     scratch space of the size that `allocateNewEmailAddressString` gives; the wrappers point into it.
  //                  Null is logged; the texts of wrappers are then the caller's to free with `delete[]`.
  // Labels come in lower case, the local part as it is. "*" is taken as "*@*"; a text S without "@" as local part S
  // with the labels "" and S. Returns the stack.
  static LabelStack& parseAddress(KxStringtable* table, const char* emailAddress, char* allStrings, LabelStack& labels);
  // Takes the top off the stack; null for an empty one.
  static const KxIndexedString* getEmailAddressName(LabelStack& labels);

 private:
  friend class zaro_addressmatch::Level;

  friend class KxWildcardedWildcardNode;

  // For a level in its tree's arena, whose label belongs to the table or to the tree.
  KxWildcardNode(KxStringtable& table, const KxIndexedString& label);

  std::vector<KxWildcardNode*> _children;      // concrete labels; the first _childrenSorted are in order
  std::vector<KxListedEmailAddress*> _leaves;  // concrete local parts; the first _leavesSorted are in order
  unsigned int _childrenSorted : 30;
  unsigned int _isLabelOwn : 1;  // but for a level in an arena
  unsigned int _childrenIndexed : 1;
  unsigned int _leavesSorted : 31;
  unsigned int _leavesIndexed : 1;
  KxWildcardNode* _wildcardChild = nullptr;
  KxListedEmailAddress* _wildcardLeaf = nullptr;
  std::unique_ptr<zaro_addressmatch::NameIndexes> _indexes;  // of a big level that is being filled
  zaro_addressmatch::TreeState* _tree = nullptr;             // the root's; null for a level of no tree
};

// The level of a label "*": it stands for all labels that are left.
class ZARO_POLICY_EXPORT KxWildcardedWildcardNode : public KxWildcardNode {
 public:
  explicit KxWildcardedWildcardNode(KxStringtable* table);
  ~KxWildcardedWildcardNode() override;

  using KxWildcardNode::addAddressPattern;
  bool addAddressPattern(const KxIndexedString* fullAddress, const KxIndexedString* name, LabelStack& labels,
                         KxEmailBelongsTo kind, const char* annotation, std::string* owner) override;
  KxWildcardNode* _findMatchingChild(const KxIndexedString& label) override;
  bool _matchWildcard(const KxIndexedString& label) override;
  KxListedEmailAddress* _findMatchingLeafNode(const KxIndexedString& name, bool atEnd) override;
  bool _matchLeafWildcard(const KxIndexedString& name, bool atEnd) override;
  bool _matchesThisNode(LabelStack& labels, const KxIndexedString*& consumed) override;

 private:
  friend class zaro_addressmatch::Level;

  // As that of a concrete level.
  KxWildcardedWildcardNode(KxStringtable& table, const KxIndexedString& label);
};

// The level above the top-level labels.
class ZARO_POLICY_EXPORT KxWildcardRootNode : public KxWildcardNode {
 public:
  explicit KxWildcardRootNode(KxStringtable* table);
  ~KxWildcardRootNode() override;

  bool _matchesThisNode(LabelStack& labels, const KxIndexedString*& consumed) override;

 private:
  std::shared_ptr<zaro_addressmatch::TreeState> _ownTree;  // null when memory ran out
};

// Where `item` belongs in a vector sorted by name: after the last element that is not greater. 0 for an empty vector.
ZARO_POLICY_EXPORT unsigned int findInsertPosi(const std::vector<KxWildcardNode*>& sorted, KxWildcardNode* item);
ZARO_POLICY_EXPORT unsigned int findInsertPosi(const std::vector<KxListedEmailAddress*>& sorted,
                                               KxListedEmailAddress* item);

// The element of a vector sorted by name whose name equals `key`, or null.
template <typename T, typename Key>
T* binarySearchInPointerVector(const std::vector<T*>& sorted, const Key& key) {
  if (sorted.empty()) {
    return nullptr;
  }
  std::size_t low = 0;
  std::size_t high = sorted.size() - 1;
  while (high - low > 1) {
    const std::size_t middle = (low + high) / 2;
    if (sorted[middle]->getName() < key) {
      low = middle;
    } else {
      high = middle;
    }
  }
  if (sorted[low]->getName() == key) {
    return sorted[low];
  }
  return high != low && sorted[high]->getName() == key ? sorted[high] : nullptr;
}
