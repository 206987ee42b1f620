// The texts of a tree that its table lacks: those of patterns that were added while the table was locked already.
//
// Such a text is a copy of the tree's own, which compares as a text. Each is stored once, so that while the tree is
// filled its names can be told apart by their handles, as the entries of a table can.
//
//   invariant   a text that the table has is not in here; a handle stays where it is as long as the tree
//   cost        as for the table (InternedTexts); none for a tree that was filled before its table was locked
//   memory      16 bytes and the text; until the freeze 10 to 20 bytes more, by which a text is found
#pragma once

#include <memory>

#include "KxStringtable.h"
#include "addressmatch/intern/InternedTexts.h"
#include "addressmatch/intern/Interner.h"
#include "addressmatch/text/Memory.h"

namespace zaro_addressmatch {

class OwnTexts {
 public:
  // The texts, made if need be. Throws std::bad_alloc.
  InternedTexts& texts() {
    if (m_texts == nullptr) {
      m_texts = std::make_unique<InternedTexts>(0);
    }
    return *m_texts;
  }
  // Null for one that is not in here.
  const KxIndexedString* find(const char* text) const { return m_texts != nullptr ? m_texts->find(text) : nullptr; }
  // As `Interner::internOwned`.
  Interner::Interned intern(const TextKey& key) {
    InternedTexts::Found found = {nullptr, false, false};
    if (!withinMemory([&] { found = texts().intern(key); })) {
      return {nullptr, false};
    }
    if (found.lacksText) {
      m_texts->remove(found.entry);
      return {nullptr, true};
    }
    found.entry->_setIndex(KxIndexedString::DeepCopy);
    return {found.entry, found.isNew};
  }
  // At the freeze: keeps the texts and nothing else.
  void forgetKeys() {
    if (m_texts != nullptr) {
      m_texts->forgetKeys();
    }
  }

 private:
  std::unique_ptr<InternedTexts> m_texts;
};

}  // namespace zaro_addressmatch
