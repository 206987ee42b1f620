// The children or leaves of a level that is being filled: new ones go to the end and are sorted in when somebody looks,
// so that a big level takes no longer for each than a small one.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <vector>

#include "KxListedEmailAddress.h"
#include "KxStringtable.h"
#include "Memory.h"
#include "Prefetch.h"
#include "TextHash.h"
#include "TextOrder.h"

namespace zaro_addressmatch {

// Where the elements of a level are found by name. Over a table names are the table's entries, and compared as such;
// without one they are compared as texts.
template <typename Named>
class NameIndex {
 public:
  explicit NameIndex(bool byText) : m_byText(byText), m_count(0) {}

  Named* find(const KxIndexedString& name) const {
    for (std::size_t place = homeOf(name);; place = next(place)) {
      const Slot& slot = m_slots[place];
      if (slot.element == nullptr || slot.name == &name || (m_byText && *slot.name == name)) {
        return slot.element;
      }
    }
  }
  // Throws std::bad_alloc, the index then as it was.
  void add(Named* element) {
    if ((m_count + 1) * 2 > m_slots.size()) {
      grow();
    }
    take({element->getNameAsPtr(), element});
    ++m_count;
  }

 private:
  struct Slot {
    const KxIndexedString* name;
    Named* element;  // null: free
  };

  static constexpr std::size_t kFirstSlots = 64;

  std::size_t homeOf(const KxIndexedString& name) const {
    const HashSeed& seed = processHashSeed();
    const std::uint64_t hash = m_byText ? hashText(seed, name.getString(), std::strlen(name.getString()))
                                        : mixed(reinterpret_cast<std::uintptr_t>(&name) ^ seed.words[0], seed.words[1]);
    return placeOf(hash, m_slots.size());
  }
  std::size_t next(std::size_t place) const { return place + 1 != m_slots.size() ? place + 1 : 0; }
  void take(const Slot& slot) {
    std::size_t place = homeOf(*slot.name);
    while (m_slots[place].element != nullptr) {
      place = next(place);
    }
    m_slots[place] = slot;
  }
  void grow() {
    std::vector<Slot> slots(std::max(kFirstSlots, m_slots.size() * 2));
    slots.swap(m_slots);
    for (const Slot& slot : slots) {
      if (slot.element != nullptr) {
        take(slot);
      }
    }
  }

  bool m_byText;
  std::size_t m_count;
  std::vector<Slot> m_slots;
};

// The vector of a level, sorted but for its end; what it consists of is kept in the level.
template <typename Named>
class GrowingLevel {
 public:
  // `index` may be null, as long as there are few.
  GrowingLevel(std::vector<Named*>& elements, std::size_t sorted, std::unique_ptr<NameIndex<Named>>* index)
      : m_elements(elements), m_sorted(sorted), m_index(index) {}

  // From this size on a level needs an index.
  static constexpr std::size_t kMany = 16;

  // Whether an element of a level over `table` (null: none) can wait to be sorted in: it has a name of its own kind,
  // and that is compared as a text.
  static bool canTake(const Named& element, const KxStringtable* table) {
    return element.getName().getIndex() == (table != nullptr ? KxIndexedString::TableEntry : KxIndexedString::DeepCopy);
  }

  // Throws std::bad_alloc, everything then as it was.
  void append(Named* element) {
    constexpr std::size_t kFirst = 24 / sizeof(Named*);  // what the smallest piece of memory has room for
    if (m_elements.capacity() == 0) {
      m_elements.reserve(kFirst);
    }
    m_elements.push_back(element);
    try {
      if (m_index != nullptr && *m_index != nullptr) {
        (*m_index)->add(element);
      }
    } catch (...) {
      m_elements.pop_back();
      throw;
    }
  }

  // `name` is an entry of the table that the level is over, if it is over one. Makes the index of many elements, if
  // memory suffices.
  Named* find(const KxIndexedString& name, bool byText) const {
    if (m_index != nullptr && *m_index == nullptr && m_elements.size() > kMany) {
      withinMemory([&] {
        auto index = std::make_unique<NameIndex<Named>>(byText);
        std::for_each(m_elements.begin(), m_elements.end(), [&index](Named* one) { index->add(one); });
        *m_index = std::move(index);
      });
    }
    if (m_index != nullptr && *m_index != nullptr) {
      return (*m_index)->find(name);
    }
    for (Named* element : m_elements) {
      if (element->getNameAsPtr() == &name || (byText && element->getName() == name)) {
        return element;
      }
    }
    return nullptr;
  }

  // Sorts in what waits.
  void settle() {
    if (m_sorted != m_elements.size()) {
      sortByName(m_elements, m_sorted);
    }
  }

 private:
  static bool precedes(const Named* one, const Named* other) { return one->getName() < other->getName(); }

  // Side by side, what the sorting would fetch one after the other.
  static void prefetchNames(const std::vector<Named*>& elements) {
    for (const Named* element : elements) {
      prefetchLine(element);
    }
    for (const Named* element : elements) {
      prefetchLine(element->getNameAsPtr());
    }
  }

  static void sortByName(std::vector<Named*>& elements, std::size_t sorted) {
    constexpr std::size_t kFew = 8;
    const auto end = elements.end();
    prefetchNames(elements);
    if (elements.size() <= kFew || elements.size() - sorted == 1) {
      for (auto element = elements.begin() + static_cast<std::ptrdiff_t>(sorted); element != end; ++element) {
        std::rotate(std::upper_bound(elements.begin(), element, *element, precedes), element, element + 1);
      }
      return;
    }
    try {
      std::vector<TextOf<Named>> items;
      items.reserve(elements.size());
      bool ranked = true;
      for (Named* element : elements) {
        items.push_back({element->getName().getIndex(), element->getNameAsStr(), element});
        ranked = ranked && element->getName().isIndexed();
      }
      if (ranked) {
        sortByKey(items.data(), items.data() + items.size());
      } else {
        sortByText(items.data(), items.data() + items.size());
      }
      std::transform(items.begin(), items.end(), elements.begin(), [](const auto& item) { return item.owner; });
    } catch (const std::bad_alloc&) {
      std::sort(elements.begin(), end, precedes);
    }
  }

  std::vector<Named*>& m_elements;
  std::size_t m_sorted;
  std::unique_ptr<NameIndex<Named>>* m_index;
};

}  // namespace zaro_addressmatch
