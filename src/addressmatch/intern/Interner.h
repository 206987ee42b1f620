// What filling and freezing need of a string table beyond its public operations: the table's only friend.
#pragma once

#include "KxStringtable.h"
#include "addressmatch/intern/InternedTexts.h"

namespace zaro_addressmatch {

class Interner {
 public:
  // The entry of a text, null when memory ran out, and whether it was made.
  struct Interned {
    const KxIndexedString* entry;
    bool isNew;
  };

  explicit Interner(KxStringtable& table) : m_table(table) {}

  // The table's entries, made if need be. Throws std::bad_alloc.
  InternedTexts& entries() const;
  // Null before the first one.
  InternedTexts* entriesOrNull() const { return m_table._entries.get(); }

  // Interns a text while the table is filled. `wanted` has the key's text; it is what the log shows. When memory runs
  // out for the copy of the text, the entry is made nevertheless and borrows the key's text.
  Interned intern(const TextKey& key, const KxIndexedString& wanted) const;
  // The same, but without an entry that borrows its text.
  Interned internOwned(const TextKey& key) const;
  // Removes the entry of a text that it borrows, while that text still exists. Filling only.
  void dropBorrowed(const KxIndexedString& wanted) const;

  // Notes that a name over this table keeps a handle with a rank, which may be another table's.
  void noteHolderOf(const KxIndexedString& ranked) const;
  // Whether one was another table's. Ranks of two tables do not compare, so that only a walk finds what it always found.
  bool hasForeignHolders() const { return m_table._hasForeignHolders; }

 private:
  KxStringtable& m_table;
};

}  // namespace zaro_addressmatch
