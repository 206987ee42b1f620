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
  const Slot* slot = part.used != 0 ? part.slots.data() + search(part, key) : nullptr;
  return slot != nullptr && slot->position != 0 ? &entryAt(slot->position) : nullptr;
}

std::size_t InternedTexts::search(const Part& part, const TextKey& key) const {
  std::size_t place = part.homeOf(key.tag, m_partBits);
  for (; part.slots[place].position != 0; place = part.next(place)) {
    if (part.slots[place].tag == key.tag) {
      const KxIndexedString& entry = entryAt(part.slots[place].position);
      const char* text = entry.getString() != nullptr ? entry.getString() : "";
      if (std::strncmp(text, key.text, key.size) == 0 && text[key.size] == '\0') {
        break;
      }
    }
  }
  return place;
}

InternedTexts::Found InternedTexts::findOrAdd(const TextKey& key) {
  Part* part = &m_parts[partOf(key.tag)];
  std::size_t place = 0;
  // Looked for first: what is there is found whether or not memory suffices for more.
  if (!part->slots.empty()) {
    place = search(*part, key);
    if (part->slots[place].position != 0) {
      return {&entryAt(part->slots[place].position), false, false};
    }
  }
  if (lacksRoom(*part)) {
    makeRoom(key.tag);
    part = &m_parts[partOf(key.tag)];
    place = search(*part, key);
  }
  const auto taken = [&](std::uint32_t position, bool lacksText) -> Found {
    part->slots[place] = {position, key.tag};
    ++part->used;
    return {&entryAt(position), true, lacksText};
  };
  TextArena::Position position = 0;
  if (m_entries.size() >= kFew && withinMemory([&] { position = m_arena.add(key.text, key.size); })) {
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

bool InternedTexts::lacksRoom(const Part& part) const {
  return (m_partBits == 0 && part.used == kBigWhole) || (part.used + 1) * 100 > part.slots.size() * kFullPercent;
}

void InternedTexts::makeRoom(std::uint32_t tag) {
  if (m_partBits == 0 && m_parts[0].used == kBigWhole) {
    split();
  }
  Part& part = m_parts[partOf(tag)];
  if (lacksRoom(part)) {
    constexpr std::size_t kFirstSlots = 32;
    resize(part, std::max(kFirstSlots, part.slots.size() * 2), m_partBits);
  }
}

void InternedTexts::split() {
  constexpr unsigned int kPartBits = 9;
  constexpr std::size_t kFirstSlots = 32;
  std::vector<Part> parts(std::size_t{1} << kPartBits);
  for (Part& part : parts) {
    part.slots.resize(kFirstSlots);
  }
  parts.swap(m_parts);
  m_partBits = kPartBits;
  try {
    for (const Slot& slot : parts[0].slots) {
      if (slot.position != 0) {
        makeRoom(slot.tag);
        take(m_parts[partOf(slot.tag)], slot, m_partBits);
      }
    }
  } catch (...) {
    parts.swap(m_parts);
    m_partBits = 0;
    throw;
  }
}

void InternedTexts::resize(Part& part, std::size_t slots, unsigned int partBits) {
  Part other;
  other.slots.resize(slots);
  for (const Slot& slot : part.slots) {
    if (slot.position != 0) {
      take(other, slot, partBits);
    }
  }
  part = std::move(other);
}

void InternedTexts::take(Part& part, const Slot& slot, unsigned int partBits) {
  std::size_t place = part.homeOf(slot.tag, partBits);
  while (part.slots[place].position != 0) {
    place = part.next(place);
  }
  part.slots[place] = slot;
  ++part.used;
}

void InternedTexts::remove(KxIndexedString* entry) {
  const std::uint32_t tag = keyOf(entry->getString()).tag;
  Part& part = m_parts[partOf(tag)];
  std::size_t gap = part.homeOf(tag, m_partBits);
  while (part.slots[gap].position == 0 || &entryAt(part.slots[gap].position) != entry) {
    gap = part.next(gap);
  }
  // Whatever the gap would hide from a search moves into it.
  const auto distance = [&part](std::size_t from, std::size_t to) {
    return to >= from ? to - from : to + part.slots.size() - from;
  };
  for (std::size_t place = part.next(gap); part.slots[place].position != 0; place = part.next(place)) {
    if (distance(part.homeOf(part.slots[place].tag, m_partBits), place) >= distance(gap, place)) {
      part.slots[gap] = part.slots[place];
      gap = place;
    }
  }
  part.slots[gap] = Slot();
  --part.used;
  m_borrowed.erase(std::remove(m_borrowed.begin(), m_borrowed.end(), entry), m_borrowed.end());
  *entry = KxIndexedString(kTakenOut);
  ++m_removed;
}

bool InternedTexts::isBorrowed(const KxIndexedString* entry) const {
  return !m_borrowed.empty() && std::find(m_borrowed.begin(), m_borrowed.end(), entry) != m_borrowed.end();
}

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
