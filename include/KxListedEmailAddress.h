// Address patterns as the leaves of an address tree.
//
// 1. Phases. A leaf is made and given memberships while its tree is filled; `lock()` freezes the memberships. The
//    weight never changes.
// 2. Threads. Making and destroying a leaf over a string table touches the lock-on-init queue: one thread at a time.
//    Once frozen, any number of threads may read.
// 3. Ownership. A leaf keeps its own handles of its texts (entries of the table, or private copies without one); it
//    owns neither the table, which must outlive it, nor the owners' texts.
// 4. Nothing here throws.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "KxStringtable.h"
#include "ZaroPolicyExport.h"

namespace zaro_addressmatch {
class LeafArena;
}  // namespace zaro_addressmatch

// Kinds of list that a pattern belongs to, as bits.
//   1, 2    first tier, kind A and B: the heaviest in the first tree that has any decides
//   4, 8    second tier, kind B and A: collected over all trees, used when no first tier decided
//   16, 32  exceptions: take back earlier 8 and 4 of the same text
//   64      never allowed
typedef unsigned int KxEmailBelongsTo;

// Something with an interned name: a leaf (its local part) or a tree node (its domain label).
class ZARO_POLICY_EXPORT KxIndexedStringNamedClass {
 public:
  // table   where the name is interned; null for a floating object, which keeps a private copy
  KxIndexedStringNamedClass(KxStringtable* table, const char* name);
  KxIndexedStringNamedClass(KxStringtable* table, const KxIndexedString* name);
  ~KxIndexedStringNamedClass();

  KxIndexedStringNamedClass(const KxIndexedStringNamedClass&) = delete;
  KxIndexedStringNamedClass& operator=(const KxIndexedStringNamedClass&) = delete;

  // The name; the empty handle (the text: null) when there is none.
  const KxIndexedString& getName() const { return *getNameAsPtr(); }
  const KxIndexedString* getNameAsPtr() const {
    return _name != nullptr ? _name : &KxStringtable::_theEmptyIndexedString;
  }
  const char* getNameAsStr() const { return _name != nullptr ? _name->getString() : nullptr; }

  // Returns a handle of the same text that this object may keep: an entry of the table, or a deep copy, or the empty
  // handle when neither can be had. Never null.
  const KxIndexedString* _lookupAndCheckName(const KxIndexedString* text, KxStringtable* table) const;
  const KxIndexedString* _lookupAndCheckName(const char* text, KxStringtable* table) const;

  // Returns a new array with the text before the first "@", or all of it; free it with `delete[]`. Null for null and
  // when memory runs out.
  static char* _inferName(const char* address);

 protected:
  // Keeps a handle that another object owns: the table, or the owner of the texts that the table lacks.
  KxIndexedStringNamedClass(KxStringtable& table, const KxIndexedString& entry) : _name(&entry), _stringtable(&table) {}

  const KxIndexedString* _name;
  KxStringtable* _stringtable;
};

// One stored pattern.
class ZARO_POLICY_EXPORT KxListedEmailAddress : public KxLockableClass, public KxIndexedStringNamedClass {
 public:
  //   table         null makes a floating leaf: texts are private copies, scan-time mode does not lock it
  //   fullAddress   the pattern, in lower case
  //   name          its local part
  KxListedEmailAddress(KxStringtable* table, const char* fullAddress, const char* name);
  KxListedEmailAddress(KxStringtable* table, const KxIndexedString* fullAddress, const KxIndexedString* name);
  ~KxListedEmailAddress();

  void lock() override;
  // Whether `name` is the local part or the whole pattern; letter case counts. Null is neither.
  virtual bool matchName(const char* name) const;
  virtual bool matchName(const KxIndexedString& name) const;
  virtual void _computeWeight();

  // Whether the kinds may stand together: none or one of them, or one of the pairs 17, 18, 20, 33, 34, 40, 48. Bits
  // above 64 are not looked at.
  static bool isStateAllowed(KxEmailBelongsTo state);
  // Filling. Adds or takes kinds; false, and nothing changed, when the result is not allowed or the leaf is locked.
  bool addMembership(KxEmailBelongsTo kinds);
  bool removeMembership(KxEmailBelongsTo kinds);

  // The pattern; the empty handle (the text: null) when there is none.
  const KxIndexedString& getFullAddress() const { return *getFullAddressAsPtr(); }
  const KxIndexedString* getFullAddressAsPtr() const {
    return _fullAddress != nullptr ? _fullAddress : &KxStringtable::_theEmptyIndexedString;
  }
  const char* getFullAddressAsStr() const { return _fullAddress != nullptr ? _fullAddress->getString() : nullptr; }

  // Specificity; a greater one is more specific. With c labels that are not "*":
  //   local part   domain without "*"   with "*", c > 0   with "*", c = 0
  //   not "*"      c + 5001             c + 3001          1001
  //   "*"          c + 4001             c + 2001          1
  // 0 when memory ran out while it was computed.
  unsigned int getWeight() const { return _weight; }
  KxEmailBelongsTo getState() const { return _state; }
  const std::string& getAnnotation() const;
  const std::vector<std::string*>& getRelatedPolicyOwners() const;
  bool isOwnerless() const;

  // Filling; used by the tree. The owner's text is not copied. False when memory runs out.
  bool setAnnotation(const char* annotation);
  bool addRelatedPolicyOwner(std::string* owner);
  void setOwnerless();

 private:
  friend class zaro_addressmatch::LeafArena;
  friend class KxWildcardedEmailAddress;

  struct Extras;  // what few of the millions of leaves have

  // For a leaf in its tree's arena. Both texts belong to the table or to the tree.
  KxListedEmailAddress(KxStringtable& table, const KxIndexedString& fullAddress, const KxIndexedString& name,
                       unsigned int weight);

  bool _changeState(KxEmailBelongsTo state);
  const Extras& _extrasOrNone() const;
  Extras& _ownExtras();

  const KxIndexedString* _fullAddress;
  std::unique_ptr<Extras> _extras;
  unsigned int _weight : 31;
  unsigned int _inArena : 1;
  KxEmailBelongsTo _state;
};

// A pattern whose local part is "*": any name matches.
class ZARO_POLICY_EXPORT KxWildcardedEmailAddress : public KxListedEmailAddress {
 public:
  KxWildcardedEmailAddress(KxStringtable* table, const char* fullAddress);
  KxWildcardedEmailAddress(KxStringtable* table, const KxIndexedString* fullAddress);

  bool matchName(const char* name) const override;
  bool matchName(const KxIndexedString& name) const override;

 private:
  friend class zaro_addressmatch::LeafArena;

  // As that of any leaf.
  KxWildcardedEmailAddress(KxStringtable& table, const KxIndexedString& fullAddress, const KxIndexedString& name,
                           unsigned int weight);
};
