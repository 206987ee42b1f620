// The children or leaves of a level that is being filled: new ones go to the end and are sorted in when somebody looks,
// so that a big level takes no longer for each than a small one.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "KxListedEmailAddress.h"
#include "KxStringtable.h"
#include "addressmatch/text/Memory.h"
#include "addressmatch/text/Prefetch.h"
#include "addressmatch/text/ProbingTable.h"
#include "addressmatch/text/RadixSort.h"
#include "addressmatch/text/TextHash.h"

namespace zaro_addressmatch {

// Where the elements of a level are found by name. Over a table names are the table's entries, and compared as such;
// without one they are compared as texts.
template <typename Named>
class NameIndex {
 public:
  explicit NameIndex(bool byText) : m_byText(byText) {}

  // The element of a name, or null. The index is not empty.
  Named* find(const KxIndexedString& name) const {
    return m_table[m_table.search(homeOf(name, m_table.slotCount()),
                                  [this, &name](const Slot& slot) {
                                    return slot.name == &name || (m_byText && *slot.name == name);
                                  })]
        .element;
  }
  // Throws std::bad_alloc (strong guarantee).
  void add(Named* element) {
    const auto home = [this](const Slot& slot, std::size_t slotCount) { return homeOf(*slot.name, slotCount); };
    constexpr std::size_t kFirstSlots = 64;
    if (m_table.isFullAt(kLoadPercent)) {
      m_table.resize(std::max(kFirstSlots, m_table.slotCount() * 2), home);
    }
    m_table.add({element->getNameAsPtr(), element}, home);
  }

 private:
  static constexpr std::size_t kLoadPercent = 50;

  struct Slot {
    const KxIndexedString* name;
    Named* element;
    bool isFree() const { return element == nullptr; }
  };

  std::size_t homeOf(const KxIndexedString& name, std::size_t slotCount) const {
    const HashSeed& seed = processHashSeed();
    const std::uint64_t hash = m_byText ? hashText(seed, name.getString(), std::strlen(name.getString()))
                                        : mixed(reinterpret_cast<std::uintptr_t>(&name) ^ seed.words[0], seed.words[1]);
    return placeOf(hash, slotCount);
  }

  bool m_byText;
  ProbingTable<Slot> m_table;
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

  // Sorts in what waits. Returns whether every name has a rank.
  bool settle() {
    if (m_sorted == m_elements.size()) {
      return areRanked();
    }
    if (m_elements.size() - m_sorted <= kFewWaiting && m_sorted > kFew) {
      sortInEach();
      return areRanked();
    }
    if (m_elements.size() <= kFew) {
      std::array<Keyed<Named>, kFew> room;
      return settleWith(room.data());
    }
    try {
      return settleWith(std::vector<Keyed<Named>>(m_elements.size()).data());
    } catch (const std::bad_alloc&) {
      std::sort(m_elements.begin(), m_elements.end(), precedes);
      return areRanked();
    }
  }

  // Has the processor fetch what settling looks at first; elements, later their names.
  void prefetchElements() const {
    for (std::size_t i = 0; i != std::min(m_elements.size(), kFetched); ++i) {
      prefetchLine(m_elements[i]);
    }
  }
  void prefetchNames() const {
    for (std::size_t i = 0; i != std::min(m_elements.size(), kFetched); ++i) {
      prefetchLine(m_elements[i]->getNameAsPtr());
    }
  }

 private:
  static constexpr std::size_t kFew = 16;
  static constexpr std::size_t kFewWaiting = 4;
  static constexpr std::size_t kFetched = 32;

  static bool precedes(const Named* one, const Named* other) { return one->getName() < other->getName(); }

  bool areRanked() const {
    return std::all_of(m_elements.begin(), m_elements.end(), [](const Named* one) { return one->getName().isIndexed(); });
  }
  // For a few that wait behind many, as when somebody adds and searches by turns.
  void sortInEach() {
    const auto begin = m_elements.begin();
    for (auto element = begin + static_cast<std::ptrdiff_t>(m_sorted); element != m_elements.end(); ++element) {
      std::rotate(std::upper_bound(begin, element, *element, precedes), element, element + 1);
    }
  }
  // `items` has room for all elements.
  bool settleWith(Keyed<Named>* items) {
    bool ranked = true;
    for (std::size_t i = 0; i != m_elements.size(); ++i) {
      const KxIndexedString& name = m_elements[i]->getName();
      items[i] = {name.getIndex(), m_elements[i]};
      ranked = ranked && name.isIndexed();
    }
    Keyed<Named>* const end = items + m_elements.size();
    if (ranked) {
      sortByKey(items, end);
    } else {
      sortByText(
          items, end,
          [](const Named& element) { return element.getNameAsStr() != nullptr ? element.getNameAsStr() : ""; }, 0);
    }
    std::transform(items, end, m_elements.begin(), [](const Keyed<Named>& item) { return item.owner; });
    return ranked;
  }

  std::vector<Named*>& m_elements;
  std::size_t m_sorted;
  std::unique_ptr<NameIndex<Named>>* m_index;
};

}  // namespace zaro_addressmatch
