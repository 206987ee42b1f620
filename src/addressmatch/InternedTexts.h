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

// Entries stay where they are; each text is there once. Who owns the texts is the table's affair, but for the note
// about those that are borrowed.
class InternedTexts {
 public:
  std::size_t size() const { return m_entries.size() - m_removed; }

  // The entry of a text, or null.
  KxIndexedString* find(const char* text) const;
  void prefetch(const char* text) const {
    const std::uint32_t tag = tagOf(text);
    const Part& part = m_parts[partOf(tag)];
    __builtin_prefetch(part.slots.data() + part.homeOf(tag, m_partBits));
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
  static constexpr char kTakenOut[] = "";
  static constexpr std::size_t kFullPercent = 80;

  // A place follows from the tag alone, so that slots can be moved without a look at the texts.
  struct Slot {
    std::uint32_t position;  // of the entry, from 1 on; 0: free
    std::uint32_t tag;
  };
  // A part of the slots. Many small parts grow by turns, and what one leaves another takes; a big whole would have the
  // system find new memory each time.
  struct Part {
    std::vector<Slot> slots;
    std::size_t used = 0;

    std::size_t homeOf(std::uint32_t tag, unsigned int partBits) const {
      return static_cast<std::size_t>(std::uint64_t{tag << partBits} * slots.size() >> 32);
    }
    std::size_t next(std::size_t place) const { return place + 1 != slots.size() ? place + 1 : 0; }
  };

  std::uint32_t tagOf(const char* text) const {
    return static_cast<std::uint32_t>(hashText(m_seed, text, std::strlen(text)));
  }
  std::size_t partOf(std::uint32_t tag) const {
    return static_cast<std::size_t>(std::uint64_t{tag} << m_partBits >> 32);
  }
  KxIndexedString* find(const char* text, std::uint32_t tag) const;
  // These throw std::bad_alloc, everything then as it was.
  void makeRoom(std::uint32_t tag);
  void split();
  static void resize(Part& part, std::size_t slots, unsigned int partBits);
  static void take(Part& part, const Slot& slot, unsigned int partBits);

  HashSeed m_seed = processHashSeed();
  std::deque<KxIndexedString> m_entries;  // those that were taken out have the text kTakenOut itself
  std::size_t m_removed = 0;
  std::vector<const KxIndexedString*> m_borrowed;
  unsigned int m_partBits = 0;
  std::vector<Part> m_parts = std::vector<Part>(1);  // as many as the bits tell
};

}  // namespace zaro_addressmatch
