// The entries of a string table and where each is found.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <utility>
#include <vector>

#include "KxStringtable.h"
#include "TextHash.h"

namespace zaro_addressmatch {

// Entries stay where they are; each text is there once. Who owns the texts is the table's affair, but for the note about
// those that are borrowed.
class InternedTexts {
 public:
  std::size_t size() const { return m_entries.size() - m_removed; }

  // The entry of a text, or null.
  KxIndexedString* find(const char* text) const;
  void prefetch(const char* text) const {
    if (!m_slots.empty()) {
      __builtin_prefetch(&m_slots[homeOf(tagOf(text))]);
    }
  }
  // The entry of the handle's text, and whether it was made, with everything but its index as the handle has it. Throws
  // std::bad_alloc, everything then as it was.
  std::pair<KxIndexedString*, bool> findOrAdd(const KxIndexedString& handle);
  // Takes an entry out.
  void remove(KxIndexedString* entry);

  // Notes that an entry which was just made borrows its text.
  void setBorrowed(const KxIndexedString* entry) { m_borrowed.push_back(entry); }  // room was made with the entry
  bool isBorrowed(const KxIndexedString* entry) const;

  template <typename Visit>
  void forEach(Visit visit) {
    for (KxIndexedString& entry : m_entries) {
      if (entry.getString() != kTakenOut) {
        visit(entry);
      }
    }
  }

  // Gives the entries their ranks in text order, as `assignRanks` does. Throws std::bad_alloc, everything then as it was.
  bool rank(unsigned int limit);

 private:
  // A place among the slots follows from the tag alone, so that they can be moved without a look at the texts.
  struct Slot {
    std::uint32_t position;  // of the entry, from 1 on; 0: free
    std::uint32_t tag;
  };

  static constexpr std::size_t kFullPercent = 80;
  static constexpr char kTakenOut[] = "";

  std::uint32_t tagOf(const char* text) const {
    return static_cast<std::uint32_t>(hashText(m_seed, text, std::strlen(text)));
  }
  std::size_t homeOf(std::uint32_t tag) const {
    return static_cast<std::size_t>(static_cast<std::uint64_t>(tag) * m_slots.size() >> 32);
  }
  std::size_t next(std::size_t place) const { return place + 1 != m_slots.size() ? place + 1 : 0; }
  KxIndexedString* find(const char* text, std::uint32_t tag) const;
  void resizeSlots(std::size_t size);
  void take(const Slot& slot);

  HashSeed m_seed = processHashSeed();
  std::deque<KxIndexedString> m_entries;  // those that were taken out have the text kTakenOut itself
  std::size_t m_removed = 0;
  std::vector<const KxIndexedString*> m_borrowed;
  std::vector<Slot> m_slots;
};

}  // namespace zaro_addressmatch
