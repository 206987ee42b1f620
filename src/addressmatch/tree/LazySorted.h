// The children or leaves of a level while it is filled: a vector that is sorted but for its tail.
//
//   invariant   the first elements, as many as the level has noted, are sorted by name; new ones lie behind them unsorted.
//               the vector is settled before it is read
//   cost        appending is constant; settling sorts all elements once (radix sort), or moves each of a few into its place,
//               so that n elements take O(n log n) and not the O(n^2) of an insertion each
//   memory      that of the vector; more than kMany elements get a name index as soon as one is looked for
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
#include "addressmatch/text/RadixSort.h"
#include "addressmatch/tree/NameIndex.h"

namespace zaro_addressmatch {

// A view of a vector that a level keeps, with its number of sorted elements and its index.
template <typename Named>
class LazySorted {
 public:
  // `index` may be null, as long as there are few.
  LazySorted(std::vector<Named*>& elements, std::size_t sorted, std::unique_ptr<NameIndex<Named>>* index)
      : m_elements(elements), m_sorted(sorted), m_index(index) {}

  // From this size on a level needs an index.
  static constexpr std::size_t kMany = 16;

  // Whether an element of a level over `table` (null: none) may lie in the tail: its name is of the level's own kind.
  // Over a locked table that is an entry, or a text of the tree's own (OwnTexts).
  static bool mayAppend(const Named& element, const KxStringtable* table) {
    if (table != nullptr && table->isLocked()) {
      return element.getName().getIndex() != KxIndexedString::Wrapper;
    }
    return element.getName().getIndex() == (table != nullptr ? KxIndexedString::TableEntry : KxIndexedString::DeepCopy);
  }

  // Throws std::bad_alloc (strong guarantee).
  void append(Named* element) {
    constexpr std::size_t kFirst = 24 / sizeof(Named*);  // what fits into the smallest piece of heap memory
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

  // The element of a name, or null. `name` is an entry of the level's table or a text of its tree's own, unless the
  // level has no table (`byText`). Makes the index of many elements, if memory suffices.
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

  // Sorts the tail in. Returns whether every name has a rank.
  bool settle() {
    if (m_sorted == m_elements.size()) {
      return areRanked();
    }
    if (m_elements.size() - m_sorted <= kShortTail && m_sorted > kFew) {
      sortInEach();
      return areRanked();
    }
    if (m_elements.size() <= kFew) {
      std::array<Keyed<Named>, kFew> items;
      return settleWith(items.data());
    }
    try {
      return settleWith(std::vector<Keyed<Named>>(m_elements.size()).data());
    } catch (const std::bad_alloc&) {
      std::sort(m_elements.begin(), m_elements.end(), precedes);
      return areRanked();
    }
  }

  // Prefetch what settling looks at: first the elements, later their names.
  void prefetchElements() const {
    for (std::size_t i = 0; i != std::min(m_elements.size(), kPrefetched); ++i) {
      prefetchLine(m_elements[i]);
    }
  }
  void prefetchNames() const {
    for (std::size_t i = 0; i != std::min(m_elements.size(), kPrefetched); ++i) {
      prefetchLine(m_elements[i]->getNameAsPtr());
    }
  }

 private:
  static constexpr std::size_t kFew = 16;
  static constexpr std::size_t kShortTail = 4;
  static constexpr std::size_t kPrefetched = 32;

  static bool precedes(const Named* one, const Named* other) { return one->getName() < other->getName(); }

  bool areRanked() const {
    return std::all_of(m_elements.begin(), m_elements.end(), [](const Named* one) { return one->getName().isIndexed(); });
  }
  // For a short tail behind many, as when a caller adds and searches by turns.
  void sortInEach() {
    const auto begin = m_elements.begin();
    for (auto element = begin + static_cast<std::ptrdiff_t>(m_sorted); element != m_elements.end(); ++element) {
      std::rotate(std::upper_bound(begin, element, *element, precedes), element, element + 1);
    }
  }
  // `items` is as long as the vector.
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
