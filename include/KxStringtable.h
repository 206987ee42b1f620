// Interned strings, the table that owns them, and the protocol by which objects are frozen for scan time.
//
// 1. Phases. A table is filled on one thread, then frozen once by `lock()`. Before the freeze handles compare by text;
//    afterwards every entry carries its rank in text order, and entries compare by that number.
// 2. Threads. After the freeze nothing writes to the table: any number of threads may look up. Before it, and for
//    everything that touches the lock-on-init queue (making or destroying a table, a table-backed node or a
//    table-backed listed address; `KxWildcardEmail::initScanTimeMode`), one thread at a time.
// 3. Ownership. The table owns its entries and their texts; both stay where they are until it is destroyed. It must
//    outlive everything that was built over it. Handles that are not entries belong to the caller that asked for them.
// 4. Nothing here throws. A failure is logged at level 1 and answered with null, false or the argument itself.
#pragma once

#include <cstddef>
#include <cstring>
#include <memory>

#include "ZaroPolicyExport.h"

class KxLockOnInitQueue;

namespace zaro_addressmatch {
class InternedTexts;
class Interner;
}  // namespace zaro_addressmatch

// A text and what is known about it; a plain value.
class ZARO_POLICY_EXPORT KxIndexedString {
 public:
  // Values of the index above the ranks 0 to `HighestIndex`, which locked tables assign.
  enum Marker : unsigned int {
    HighestIndex = 0xFFFFFFFCu,
    TableEntry = 0xFFFFFFFDu,  // entry of a table that is not locked (or whose ranks ran out); the table owns the text
    Wrapper = 0xFFFFFFFEu,     // borrows a text of the caller's; in no table
    DeepCopy = 0xFFFFFFFFu,    // owns a private copy of the text; in no table
  };

  // Wraps a NUL-terminated text without copying it; keep the text alive as long as the handle.
  constexpr KxIndexedString(const char* text) : _string(text), _index(Wrapper) {}

  const char* getString() const { return _string; }
  unsigned int getIndex() const { return _index; }
  bool isIndexed() const { return _index <= HighestIndex; }

  // Ranks where both have one, texts (byte by byte, unsigned) otherwise; the two orders agree within one table. A null
  // text counts as an empty one.
  bool operator<(const KxIndexedString& other) const {
    return isIndexed() && other.isIndexed() ? _index < other._index : _compareTexts(other) < 0;
  }
  bool operator==(const KxIndexedString& other) const {
    return isIndexed() && other.isIndexed() ? _index == other._index : _compareTexts(other) == 0;
  }
  bool operator!=(const KxIndexedString& other) const { return !(*this == other); }

  void _setIndex(unsigned int index) { _index = index; }
  // Frees the text as an array and makes this a wrapper; the text pointer is left as it was. False for a null text.
  bool _explicitCleanupString();

  // Returns a new handle that owns a copy of the text (release it with `KxStringtable::cleanupReference`), or null for
  // a null argument, a null text or when memory runs out.
  static KxIndexedString* deepCopy(const KxIndexedString* source);

 private:
  int _compareTexts(const KxIndexedString& other) const {
    return std::strcmp(_string != nullptr ? _string : "", other._string != nullptr ? other._string : "");
  }

  const char* _string;
  unsigned int _index;
};

// What is frozen for scan time: string tables, tree nodes, listed addresses.
class ZARO_POLICY_EXPORT KxLockableClass {
 public:
  // Freezes the object; an object of this library ignores or refuses changes afterwards as its class says.
  virtual void lock() = 0;
  virtual bool isLocked() const;
  // Sets the flag and nothing else.
  virtual void _lock();

  KxLockableClass(const KxLockableClass&) = delete;
  KxLockableClass& operator=(const KxLockableClass&) = delete;

 protected:
  // lockOnInit   whether the next `KxWildcardEmail::initScanTimeMode` shall lock the object
  explicit KxLockableClass(bool lockOnInit);
  // If the object still waits in the queue, a static object whose `lock()` does nothing takes its place. Constant time.
  ~KxLockableClass();

 private:
  friend class KxLockOnInitQueue;

  // In one word, to keep the millions of leaves small.
  unsigned int _locked : 1;
  unsigned int _ticket : 31;  // see KxLockOnInitQueue
};

// A set of texts, each held once.
class ZARO_POLICY_EXPORT KxStringtable : public KxLockableClass {
 public:
  // Registers itself: the next `KxWildcardEmail::initScanTimeMode` locks it.
  KxStringtable();
  ~KxStringtable();

  // Filling: returns the entry of the text, made if need be. Frozen: answers as `getRef`.
  // Returns the argument itself when it is null, wraps null, or cannot be added.
  const KxIndexedString* getStringtableRef(const KxIndexedString* wanted);
  const KxIndexedString* getStringtableRef(const KxIndexedString& wanted);
  // Returns null for null; a new wrapper that borrows `text` when it cannot be added. Release the answer with
  // `cleanupReference`.
  const KxIndexedString* getStringtableRef(const char* text);

  // Any phase: returns the entry of the text without making one, or the argument itself.
  const KxIndexedString* getRef(const KxIndexedString* wanted) const;
  // As above, but an unknown text is answered with a new wrapper that borrows it (null when memory runs out). Release
  // the answer with `cleanupReference`.
  const KxIndexedString* getRef(const char* text) const;

  // Filling only. Returns the new or existing entry, or null. When memory runs out for the copy of a text, the entry is
  // made nevertheless and borrows the caller's text from then on.
  const KxIndexedString* _addToStringtable(const KxIndexedString* wanted);
  const KxIndexedString* _addToStringtable(const char* text);
  // Any phase. Returns the entry or null.
  const KxIndexedString* _findInStringtable(const KxIndexedString* wanted) const;
  const KxIndexedString* _findInStringtable(const char* text) const;

  // Releases a handle by what its index says: an entry (and the two static handles below) stays as it is, a wrapper is
  // freed without its text, a deep copy with its text. False for null, otherwise true.
  static bool cleanupReference(KxIndexedString* handle);
  static bool cleanupReference(const KxIndexedString* handle);
  // Frees a wrapper or deep copy together with its text; leaves entries and the two static handles alone (true). False
  // for null and for a null text.
  static bool _deepDelete(KxIndexedString* handle);
  static bool _deepDelete(const KxIndexedString* handle);

  // Freezes the table: every entry gets its rank, beginning with 0. A second call is logged and changes nothing.
  void lock() override;

  // Number of entries.
  std::size_t size() const;

  // The empty text and "*": wrappers of their own, in no table, never to be freed.
  static KxIndexedString _theEmptyIndexedString;
  static KxIndexedString _theWildcardIndexedString;

 private:
  friend class zaro_addressmatch::Interner;

  std::unique_ptr<zaro_addressmatch::InternedTexts> _entries;  // null before the first entry
  bool _hasForeignHolders;  // whether a name over this table kept a handle with another table's rank
};

// A counter for callers that count allocations; the library does not use it. True sets it to 0, false adds 1; returns
// the new value. One thread at a time.
ZARO_POLICY_EXPORT unsigned int allocating(bool reset);
