// Which child or leaf of a big level has a name.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

#include "KxListedEmailAddress.h"
#include "KxWildcardNode.h"
#include "addressmatch/text/ProbingTable.h"
#include "addressmatch/text/TextHash.h"

namespace zaro_addressmatch {

// Elements of a level by name, while it is filled. Names over a table are entries of the table and are compared as
// such; without a table they are compared as texts.
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
    return fastRange(hash, slotCount);
  }

  bool m_byText;
  ProbingTable<Slot> m_table;
};

// The indexes of one big level; a level with few elements has none.
struct NameIndexes {
  std::unique_ptr<NameIndex<KxWildcardNode>> children;
  std::unique_ptr<NameIndex<KxListedEmailAddress>> leaves;
};

}  // namespace zaro_addressmatch
