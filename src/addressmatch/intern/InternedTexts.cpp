#include "addressmatch/intern/InternedTexts.h"

#include <algorithm>
#include <new>
#include <utility>

#include "addressmatch/intern/Ranks.h"
#include "addressmatch/text/Memory.h"
#include "addressmatch/text/Prefetch.h"
#include "addressmatch/text/RadixSort.h"

namespace zaro_addressmatch {

KxIndexedString* InternedTexts::find(const TextKey& key) const {
  const Part& part = m_parts[partOf(key.tag)];
  if (part.used() == 0) {
    return nullptr;
  }
  const Slot& slot = part[search(part, key)];
  return slot.isFree() ? nullptr : &entryAt(slot.position);
}

std::size_t InternedTexts::search(const Part& part, const TextKey& key) const {
  return part.search(homeOf(key.tag, m_partBits, part.slotCount()), [this, &key](const Slot& slot) {
    if (slot.tag != key.tag) {
      return false;
    }
    const KxIndexedString& entry = entryAt(slot.position);
    const char* text = entry.getString() != nullptr ? entry.getString() : "";
    return std::strncmp(text, key.text, key.size) == 0 && text[key.size] == '\0';
  });
}

InternedTexts::Found InternedTexts::intern(const TextKey& key) {
  Part* part = &m_parts[partOf(key.tag)];
  std::size_t place = 0;
  // Looked for first: what is there is found whether or not memory suffices for more.
  if (part->slotCount() != 0) {
    place = search(*part, key);
    if (!(*part)[place].isFree()) {
      return {&entryAt((*part)[place].position), false, false};
    }
  }
  if (isFull(*part)) {
    reserveOne(key.tag);
    part = &m_parts[partOf(key.tag)];
    place = search(*part, key);
  }
  const auto taken = [&](std::uint32_t position, bool lacksText) -> Found {
    part->put(place, {position, key.tag});
    return {&entryAt(position), true, lacksText};
  };
  TextArena::Position position = 0;
  if (m_entries.size() >= m_few && withinMemory([&] { position = m_arena.add(key.text, key.size); })) {
    ++m_inArena;
    return taken(position | kInArena, false);
  }
  if (m_entries.size() >= kInArena - 1) {
    throw std::bad_alloc();
  }
  m_borrowed.reserve(m_borrowed.size() + 1);
  m_entries.emplace_back(key.text);
  return taken(static_cast<std::uint32_t>(m_entries.size()), true);
}

bool InternedTexts::isFull(const Part& part) const {
  return (m_partBits == 0 && part.used() == kBigWhole) || part.isFullAt(kLoadPercent);
}

void InternedTexts::reserveOne(std::uint32_t tag) {
  if (m_partBits == 0 && m_parts[0].used() == kBigWhole) {
    split();
  }
  Part& part = m_parts[partOf(tag)];
  if (isFull(part)) {
    part.resize(std::max(kFirstSlots, part.slotCount() * 2), home(m_partBits));
  }
}

// Divides the one table among many by the highest bits of the tags. When memory runs out, the old table is put back.
void InternedTexts::split() {
  constexpr unsigned int kPartBits = 9;
  std::vector<Part> parts(std::size_t{1} << kPartBits);
  for (Part& part : parts) {
    part.resize(kFirstSlots, home(kPartBits));
  }
  parts.swap(m_parts);
  m_partBits = kPartBits;
  try {
    for (const Slot& slot : parts[0]) {
      if (!slot.isFree()) {
        reserveOne(slot.tag);
        m_parts[partOf(slot.tag)].add(slot, home(m_partBits));
      }
    }
  } catch (...) {
    parts.swap(m_parts);
    m_partBits = 0;
    throw;
  }
}

void InternedTexts::remove(KxIndexedString* entry) {
  // Only entries that borrow their texts are removed, and those lie in the deque, where a mark takes their place.
  const std::uint32_t tag = textKeyOf(entry->getString()).tag;
  Part& part = m_parts[partOf(tag)];
  const std::size_t slot = part.search(homeOf(tag, m_partBits, part.slotCount()),
                                       [this, entry](const Slot& one) { return &entryAt(one.position) == entry; });
  part.remove(slot, home(m_partBits));
  m_borrowed.erase(std::remove(m_borrowed.begin(), m_borrowed.end(), entry), m_borrowed.end());
  *entry = KxIndexedString(kTakenOut);
  ++m_removed;
}

void InternedTexts::forgetKeys() {
  for (Part& part : m_parts) {
    part = Part();
  }
}

void InternedTexts::shrink() {
  for (Part& part : m_parts) {
    const std::size_t slots = std::max(kFirstSlots, part.used() * 100 / kLoadPercent + 1);
    if (slots < part.slotCount()) {
      part.resize(slots, home(m_partBits));
    }
  }
}

bool InternedTexts::isBorrowed(const KxIndexedString* entry) const {
  return !m_borrowed.empty() && std::find(m_borrowed.begin(), m_borrowed.end(), entry) != m_borrowed.end();
}

// Sorts keys of eight bytes beside pointers, not the entries: most texts differ within their first words, and the
// entries have to stay where they are.
bool InternedTexts::rank(unsigned int limit) {
  using Item = Keyed<KxIndexedString>;
  const auto textOf = [](const KxIndexedString& entry) { return entry.getString() != nullptr ? entry.getString() : ""; };
  std::vector<Item> items;
  items.reserve(size());
  forEachOfTable([&](KxIndexedString& entry) { items.push_back({orderingWord(textOf(entry)), &entry}); });
  m_arena.forEach([&items](KxIndexedString& entry, const char* text) {
    items.push_back({orderingWord(load8(text)), &entry});
  });
  sortByKeyAndText(items.data(), items.data() + items.size(), textOf, 0);
  if (items.empty()) {
    return false;
  }
  const Item* const last = items.data() + items.size() - 1;
  return assignRanks(items.begin(), items.end(), limit, [last](const Item& item, unsigned int rank) {
    constexpr std::ptrdiff_t kAhead = 16;
    prefetchLine((&item + std::min(kAhead, last - &item))->owner);
    item.owner->_setIndex(rank);
  });
}

}  // namespace zaro_addressmatch
