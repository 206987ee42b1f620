#include "InternedTexts.h"

#include <algorithm>
#include <limits>
#include <new>

#include "Ranks.h"
#include "TextOrder.h"

namespace zaro_addressmatch {

KxIndexedString* InternedTexts::find(const char* text) const {
  return find(text, tagOf(text));
}

KxIndexedString* InternedTexts::find(const char* text, std::uint32_t tag) const {
  const Part& part = m_parts[partOf(tag)];
  if (part.used == 0) {
    return nullptr;
  }
  for (std::size_t place = part.homeOf(tag, m_partBits); part.slots[place].position != 0; place = part.next(place)) {
    if (part.slots[place].tag == tag) {
      const KxIndexedString& entry = m_entries[part.slots[place].position - 1];
      if (entry == KxIndexedString(text)) {
        return const_cast<KxIndexedString*>(&entry);
      }
    }
  }
  return nullptr;
}

std::pair<KxIndexedString*, bool> InternedTexts::findOrAdd(const KxIndexedString& handle) {
  const std::uint32_t tag = tagOf(handle.getString());
  if (KxIndexedString* entry = find(handle.getString(), tag)) {
    return {entry, false};
  }
  if (m_entries.size() >= std::numeric_limits<std::uint32_t>::max()) {
    throw std::bad_alloc();
  }
  m_borrowed.reserve(m_borrowed.size() + 1);
  makeRoom(tag);
  m_entries.push_back(handle);
  take(m_parts[partOf(tag)], {static_cast<std::uint32_t>(m_entries.size()), tag}, m_partBits);
  return {&m_entries.back(), true};
}

void InternedTexts::makeRoom(std::uint32_t tag) {
  constexpr std::size_t kBigWhole = 32768;
  if (m_partBits == 0 && m_parts[0].used == kBigWhole) {
    split();
  }
  Part& part = m_parts[partOf(tag)];
  if ((part.used + 1) * 100 > part.slots.size() * kFullPercent) {
    constexpr std::size_t kFirstSlots = 32;
    resize(part, std::max(kFirstSlots, part.slots.size() * 2), m_partBits);
  }
}

void InternedTexts::split() {
  constexpr unsigned int kPartBits = 12;
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
  const std::uint32_t tag = tagOf(entry->getString());
  Part& part = m_parts[partOf(tag)];
  std::size_t gap = part.homeOf(tag, m_partBits);
  while (part.slots[gap].position == 0 || &m_entries[part.slots[gap].position - 1] != entry) {
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
  using Item = TextOf<KxIndexedString>;
  std::vector<Item> items;
  items.reserve(size());
  forEach([&items](KxIndexedString& entry) {
    items.push_back({0, entry.getString() != nullptr ? entry.getString() : "", &entry});
  });
  sortByText(items.data(), items.data() + items.size());
  for (Part& part : m_parts) {
    resize(part, part.used * 100 / kFullPercent + 1, m_partBits);  // no more will come
  }
  return assignRanks(items.begin(), items.end(), limit,
                     [](const Item& item, unsigned int rank) { item.owner->_setIndex(rank); });
}

}  // namespace zaro_addressmatch
