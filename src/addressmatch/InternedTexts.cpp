#include "InternedTexts.h"

#include <algorithm>
#include <limits>
#include <new>

#include "Ranks.h"
#include "TextOrder.h"

namespace zaro_addressmatch {

KxIndexedString* InternedTexts::find(const char* text) const {
  return m_slots.empty() ? nullptr : find(text, tagOf(text));
}

KxIndexedString* InternedTexts::find(const char* text, std::uint32_t tag) const {
  for (std::size_t place = homeOf(tag); m_slots[place].position != 0; place = next(place)) {
    if (m_slots[place].tag == tag) {
      const KxIndexedString& entry = m_entries[m_slots[place].position - 1];
      if (entry == KxIndexedString(text)) {
        return const_cast<KxIndexedString*>(&entry);
      }
    }
  }
  return nullptr;
}

std::pair<KxIndexedString*, bool> InternedTexts::findOrAdd(const KxIndexedString& handle) {
  constexpr std::size_t kFirstSlots = 64;
  const std::uint32_t tag = tagOf(handle.getString());
  if (m_slots.empty()) {
    resizeSlots(kFirstSlots);
  }
  if (KxIndexedString* entry = find(handle.getString(), tag)) {
    return {entry, false};
  }
  if (m_entries.size() >= std::numeric_limits<std::uint32_t>::max()) {
    throw std::bad_alloc();
  }
  m_borrowed.reserve(m_borrowed.size() + 1);
  if ((size() + 1) * 100 > m_slots.size() * kFullPercent) {
    resizeSlots(m_slots.size() * 2);
  }
  m_entries.push_back(handle);
  take({static_cast<std::uint32_t>(m_entries.size()), tag});
  return {&m_entries.back(), true};
}

void InternedTexts::take(const Slot& slot) {
  std::size_t place = homeOf(slot.tag);
  while (m_slots[place].position != 0) {
    place = next(place);
  }
  m_slots[place] = slot;
}

void InternedTexts::resizeSlots(std::size_t size) {
  std::vector<Slot> slots(size);
  slots.swap(m_slots);
  for (const Slot& slot : slots) {
    if (slot.position != 0) {
      take(slot);
    }
  }
}

void InternedTexts::remove(KxIndexedString* entry) {
  std::size_t gap = homeOf(tagOf(entry->getString()));
  while (&m_entries[m_slots[gap].position - 1] != entry) {
    gap = next(gap);
  }
  // Whatever the gap would hide from a search moves into it.
  const auto distance = [this](std::size_t from, std::size_t to) {
    return to >= from ? to - from : to + m_slots.size() - from;
  };
  for (std::size_t place = next(gap); m_slots[place].position != 0; place = next(place)) {
    if (distance(homeOf(m_slots[place].tag), place) >= distance(gap, place)) {
      m_slots[gap] = m_slots[place];
      gap = place;
    }
  }
  m_slots[gap] = Slot();
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
  resizeSlots(size() * 100 / kFullPercent + 1);  // no more will come
  return assignRanks(items.begin(), items.end(), limit,
                     [](const Item& item, unsigned int rank) { item.owner->_setIndex(rank); });
}

}  // namespace zaro_addressmatch
