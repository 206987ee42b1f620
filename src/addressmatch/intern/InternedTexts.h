// String interning: every text is stored once, and its entry stands for it.
//
// A hash table with linear probing over entries that never move. The first entries of a string table, 1024 of them, lie
// in a deque and leave their texts to the table, which releases each with a log line of its own; the others lie with
// their texts in an arena.
//
//   invariant   a text has one entry, which stays where it is; a slot holds 32 bits of the text's hash, so that most
//               comparisons need no look at a text, and slots can be moved without one
//   cost        one slot and one text for a look-up; at 32768 texts the table is divided into 512, which grow one
//               by one
//   memory      8 bytes a slot at a load factor of at most 4/5, and the entries
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

#include "KxStringtable.h"
#include "addressmatch/intern/TextArena.h"
#include "addressmatch/text/Prefetch.h"
#include "addressmatch/text/ProbingTable.h"
#include "addressmatch/text/TextHash.h"

namespace zaro_addressmatch {

// A text, its size, and what it is looked for by.
struct TextKey {
  const char* text;
  std::size_t size;
  std::uint32_t tag;
};

// By the process's hash seed, so that a key serves for any InternedTexts.
inline TextKey textKeyOf(const char* text) {
  const std::size_t size = std::strlen(text);
  return {text, size, static_cast<std::uint32_t>(hashText(processHashSeed(), text, size))};
}

class InternedTexts {
 public:
  // `few` entries leave their texts to their owner.
  explicit InternedTexts(std::size_t few = kFew) : m_few(few) {}

  // Of the first `size` characters of a text. A text that is added has its terminator there.
  TextKey keyOf(const char* text, std::size_t size) const {
    return {text, size, static_cast<std::uint32_t>(hashText(m_seed, text, size))};
  }
  // The same, for a text in words.
  TextKey keyOf(const char* text, std::size_t size, const std::uint64_t* words) const {
    return {text, size, static_cast<std::uint32_t>(hashOfWords(m_seed, words, size))};
  }

  TextKey keyOf(const char* text) const { return textKeyOf(text); }

  std::size_t size() const { return m_inArena + m_entries.size() - m_removed; }

  // The entry of a text, or null.
  KxIndexedString* find(const TextKey& key) const;
  KxIndexedString* find(const char* text) const { return find(textKeyOf(text)); }
  void prefetch(const TextKey& key) const {
    const Part& part = m_parts[partOf(key.tag)];
    prefetchLine(part.data() + homeOf(key.tag, m_partBits, part.slotCount()));
  }
  struct Found {
    KxIndexedString* entry;
    bool isNew;
    bool lacksText;  // it is a new one that wraps the key's text
  };
  // The entry of a text, made if need be. Throws std::bad_alloc (strong guarantee).
  Found intern(const TextKey& key);
  // Removes an entry that borrows its text.
  void remove(KxIndexedString* entry);

  // Notes that an entry which was just made borrows its text.
  void setBorrowed(const KxIndexedString* entry) { m_borrowed.push_back(entry); }  // `intern` has reserved it
  bool isBorrowed(const KxIndexedString* entry) const;

  // Visits the entries that leave their texts to the string table.
  template <typename Visit>
  void forEachOfTable(Visit visit) {
    for (KxIndexedString& entry : m_entries) {
      if (entry.getString() != kTakenOut) {
        visit(entry);
      }
    }
  }
  template <typename Visit>
  void forEach(Visit visit) {
    forEachOfTable(visit);
    m_arena.forEach([&visit](KxIndexedString& entry, const char* /*text*/) { visit(entry); });
  }

  // Gives back what finding takes; from here on no text is found.
  void forgetKeys();

  // Gives back the room for further texts. Throws std::bad_alloc (every text is still found).
  void shrink();

  // Gives the entries their ranks in text order, as `assignRanks` does. Throws std::bad_alloc (strong guarantee).
  bool rank(unsigned int limit);

 private:
  static constexpr char kTakenOut[] = "";
  static constexpr std::size_t kLoadPercent = 80;
  static constexpr std::size_t kFirstSlots = 32;
  // From so many on in one part it is split into many.
  static constexpr std::size_t kBigWhole = 32768;

  static constexpr std::size_t kFew = 1024;
  // What a position in the blocks has beside it.
  static constexpr std::uint32_t kInArena = TextArena::kPositions;

  // A home follows from the tag alone, so that slots can be moved without a look at the texts.
  struct Slot {
    std::uint32_t position;  // of the entry, from 1 on or in the arena; 0: free
    std::uint32_t tag;
    bool isFree() const { return position == 0; }
  };
  // One of the tables that the texts are divided among by the highest bits of their tags. Many small tables grow by
  // turns, and one takes the memory that another gave up; a single big one would need fresh memory each time.
  using Part = ProbingTable<Slot>;

  std::size_t partOf(std::uint32_t tag) const {
    return static_cast<std::size_t>(std::uint64_t{tag} << m_partBits >> 32);
  }
  static std::size_t homeOf(std::uint32_t tag, unsigned int partBits, std::size_t slotCount) {
    return static_cast<std::size_t>(std::uint64_t{tag << partBits} * slotCount >> 32);
  }
  // The home of a slot's text, for the table.
  static auto home(unsigned int partBits) {
    return [partBits](const Slot& slot, std::size_t slotCount) { return homeOf(slot.tag, partBits, slotCount); };
  }
  KxIndexedString& entryAt(std::uint32_t position) const {
    // What the table hands out is not to be changed by others, but it is not constant.
    return (position & kInArena) != 0 ? m_arena.at(position ^ kInArena)
                                      : const_cast<KxIndexedString&>(m_entries[position - 1]);
  }
  // The slot of a text, or the free one where the search for it ends; not all of the part's slots are used.
  std::size_t search(const Part& part, const TextKey& key) const;
  bool isFull(const Part& part) const;
  // These throw std::bad_alloc (strong guarantee).
  void reserveOne(std::uint32_t tag);
  void split();

  HashSeed m_seed = processHashSeed();
  std::size_t m_few;
  std::deque<KxIndexedString> m_entries;  // those that were taken out have the text kTakenOut itself
  std::size_t m_removed = 0;
  TextArena m_arena;
  std::size_t m_inArena = 0;
  std::vector<const KxIndexedString*> m_borrowed;
  unsigned int m_partBits = 0;
  std::vector<Part> m_parts = std::vector<Part>(1);  // 2^m_partBits
};

}  // namespace zaro_addressmatch
