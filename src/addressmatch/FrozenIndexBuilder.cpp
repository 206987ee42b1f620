// How an index comes from a tree.
#include <algorithm>
#include <cstring>
#include <string>

#include "FrozenIndex.h"

namespace zaro_addressmatch {

class FrozenIndexBuilder {
 public:
  FrozenIndexBuilder(const KxWildcardNode& root, const HashSeed& seed) : m_root(root), m_index(new FrozenIndex(seed)) {}

  // Null when the tree holds something that an index cannot tell.
  std::unique_ptr<const FrozenIndex> build() {
    if (!collectLevels() || roomFor(m_levels.size()) > UINT32_MAX || roomFor(m_nameCount) > UINT32_MAX) {
      return nullptr;
    }
    m_index->m_domains.resize(roomFor(m_levels.size()));
    m_index->m_names.resize(roomFor(m_nameCount));
    m_index->m_namesBelow.resize(roomFor(m_nameBelowCount));
    makeFilter();
    for (const Level& level : m_levels) {
      addDomain(level);
    }
    if (!addNames()) {
      return nullptr;
    }
    return std::move(m_index);
  }

 private:
  using Leaves = std::vector<KxListedEmailAddress*>;

  // A level that holds something; its text lies in m_texts.
  struct Level {
    const KxWildcardNode* node;
    std::uint64_t hash;
    std::size_t text;
    std::size_t textSize;
  };
  struct Descent {
    const KxWildcardNode* node;
    std::uint64_t hash;
    std::size_t nextChild;
  };
  // A leaf on its way into the index.
  struct Name {
    KxListedEmailAddress* leaf;
    const KxIndexedString* handle;
    std::uint64_t hash;  // of its level, then its own
    std::uint32_t number;
    bool below;
    bool indexed;  // whether its level looks only for names that have a rank
    std::size_t size;
  };
  // So many leaves go side by side, so that the processor fetches their parts side by side.
  static constexpr std::size_t kTogether = 256;

  // One more than `count`, at least: a search ends at a free place.
  static std::size_t roomFor(std::size_t count) { return count * 100 / FrozenIndex::kFullPercent + 1; }

  static bool holdsSomething(const KxWildcardNode& node) {
    return !node._leaves.empty() || node._wildcardLeaf != nullptr || node._wildcardChild != nullptr;
  }

  // Walks the tree without deeper calls for deeper domains.
  bool collectLevels() {
    if (m_root._wildcardChild != nullptr) {
      m_nameBelowCount += m_root._wildcardChild->_leaves.size();
    }
    m_path.push_back({&m_root, FrozenIndex::kEmptyDomainHash, 0});
    while (!m_path.empty()) {
      Descent& above = m_path.back();
      if (above.nextChild == above.node->_children.size()) {
        m_path.pop_back();
        continue;
      }
      prefetchChildren(*above.node, above.nextChild);
      const KxWildcardNode& child = *above.node->_children[above.nextChild++];
      if (child._tree != m_root._tree || (above.node->_childrenIndexed && !child.getName().isIndexed())) {
        return false;
      }
      const char* label = textOf(child);
      // Only a bare text gives such a label, and only the walk splits bare texts.
      if (std::strchr(label, '.') == nullptr) {
        m_path.push_back({&child, hashText(m_index->m_seed, label, std::strlen(label), above.hash), 0});
        takeLevel();
      }
    }
    return true;
  }

  // Has the processor fetch what later children are made of, one part after the other.
  static void prefetchChildren(const KxWildcardNode& node, std::size_t next) {
    constexpr std::size_t kStep = 4;
    const auto at = [&](std::size_t steps) -> const KxWildcardNode* {
      const std::size_t child = next + steps * kStep;
      return child < node._children.size() ? node._children[child] : nullptr;
    };
    if (const KxWildcardNode* child = at(3)) {
      __builtin_prefetch(child);
      __builtin_prefetch(&child->_wildcardLeaf);
    }
    if (const KxWildcardNode* child = at(2)) {
      __builtin_prefetch(child->getNameAsPtr());
    }
    if (const KxWildcardNode* child = at(1)) {
      __builtin_prefetch(child->getNameAsStr());
    }
  }

  static const char* textOf(const KxIndexedStringNamedClass& named) {
    const char* text = named.getName().getString();
    return text != nullptr ? text : "";
  }

  void takeLevel() {
    const KxWildcardNode& node = *m_path.back().node;
    if (!holdsSomething(node)) {
      return;
    }
    m_nameCount += node._leaves.size();
    if (node._wildcardChild != nullptr) {
      m_nameBelowCount += node._wildcardChild->_leaves.size();
      ++m_belowCount;
    }
    const std::size_t begin = m_texts.size();
    for (std::size_t level = m_path.size() - 1; level != 0; --level) {
      m_texts += textOf(*m_path[level].node);
      m_texts += '.';
    }
    m_texts.pop_back();
    m_levels.push_back({&node, m_path.back().hash, begin, m_texts.size() - begin});
  }

  void makeFilter() {
    constexpr std::size_t kBytesEach = 2;
    std::size_t size = 64;
    while (size < (m_belowCount + m_nameBelowCount) * kBytesEach) {
      size *= 2;
    }
    m_index->m_filter.resize(size);
    m_index->m_filterMask = size - 1;
  }

  void addDomain(const Level& level) {
    const std::size_t number = static_cast<std::size_t>(&level - m_levels.data()) + 1;
    FrozenIndex::DomainSlot& slot =
        m_index->m_domains[freeSlot(m_index->m_domains, level.hash, [](const auto& one) { return one.number == 0; })];
    slot.number = static_cast<std::uint32_t>(number);
    slot.anyName = level.node->_wildcardLeaf;
    slot.hasNames = !level.node->_leaves.empty();
    slot.size = level.textSize & 0x3FFFFFFFu;
    const char* text = m_texts.data() + level.text;
    if (level.textSize <= FrozenIndex::kDomainRoom) {
      std::memcpy(slot.text, text, level.textSize);
    } else {
      std::unique_ptr<char[]> copy(new char[level.textSize]);
      std::memcpy(copy.get(), text, level.textSize);
      slot.longText = copy.get();
      m_index->m_longTexts.push_back(std::move(copy));
    }
    if (const KxWildcardNode* below = level.node->_wildcardChild) {
      slot.anyNameBelow = below->_wildcardLeaf;
      slot.hasNamesBelow = !below->_leaves.empty();
      markBelow(level.hash);
    }
  }

  void markBelow(std::uint64_t hash) {
    m_index->m_filter[hash >> 3 & m_index->m_filterMask] |= static_cast<std::uint8_t>(1u << (hash & 7));
  }

  // The first free place from a hash's own on.
  template <typename Slot, typename IsFree>
  std::size_t freeSlot(const std::vector<Slot>& slots, std::uint64_t hash, IsFree isFree) {
    std::size_t probes = 1;
    std::size_t place = placeOf(hash, slots.size());
    for (; !isFree(slots[place]); ++probes) {
      place = place + 1 != slots.size() ? place + 1 : 0;
    }
    m_index->m_longestProbe = std::max(m_index->m_longestProbe, probes);
    return place;
  }

  bool addNames() {
    if (const KxWildcardNode* below = m_root._wildcardChild) {
      m_index->m_anyAtAll = below->_wildcardLeaf;
      m_index->m_hasNamesBelowRoot = !below->_leaves.empty();
      takeNames(*below, FrozenIndex::kEmptyDomainHash, 0, true);
    }
    std::uint32_t number = 0;
    for (const Level& level : m_levels) {
      takeNames(*level.node, level.hash, ++number, false);
      if (level.node->_wildcardChild != nullptr) {
        takeNames(*level.node->_wildcardChild, level.hash, number, true);
      }
    }
    flushNames();
    return m_told;
  }

  void takeNames(const KxWildcardNode& node, std::uint64_t domainHash, std::uint32_t number, bool below) {
    for (KxListedEmailAddress* leaf : node._leaves) {
      __builtin_prefetch(leaf);
      m_waiting.push_back({leaf, nullptr, domainHash, number, below, node._leavesIndexed, 0});
      if (m_waiting.size() == kTogether) {
        flushNames();
      }
    }
  }

  std::vector<FrozenIndex::NameSlot>& namesOf(const Name& name) {
    return name.below ? m_index->m_namesBelow : m_index->m_names;
  }

  void flushNames() {
    for (Name& name : m_waiting) {
      name.handle = name.leaf->getNameAsPtr();
      __builtin_prefetch(name.handle);
    }
    for (const Name& name : m_waiting) {
      m_told = m_told && (!name.indexed || name.handle->isIndexed());
      __builtin_prefetch(name.handle->getString());
    }
    for (Name& name : m_waiting) {
      const char* text = textOf(*name.leaf);
      name.size = std::strlen(text);
      name.hash = m_index->nameHashAt(hashText(m_index->m_seed, text, name.size, 0), name.hash);
      __builtin_prefetch(&namesOf(name)[placeOf(name.hash, namesOf(name).size())], 1);
    }
    for (const Name& name : m_waiting) {
      addName(name);
    }
    m_waiting.clear();
  }

  void addName(const Name& name) {
    std::uint64_t padded[4] = {};
    std::memcpy(padded, textOf(*name.leaf), std::min(name.size, FrozenIndex::kNameRoom));
    const std::size_t place = freeSlot(namesOf(name), name.hash, [](const auto& one) { return one.leaf == nullptr; });
    namesOf(name)[place] = {name.leaf, FrozenIndex::NameKey::of(padded, name.size).at(name.number)};
    if (name.below) {
      markBelow(name.hash);
    }
  }

  const KxWildcardNode& m_root;
  std::unique_ptr<FrozenIndex> m_index;
  std::vector<Descent> m_path;
  std::vector<Level> m_levels;
  std::string m_texts;
  std::size_t m_nameCount = 0;
  std::size_t m_nameBelowCount = 0;
  std::size_t m_belowCount = 0;
  std::vector<Name> m_waiting;
  bool m_told = true;
};

std::unique_ptr<const FrozenIndex> FrozenIndex::build(const KxWildcardNode& root, const HashSeed& seed) {
  return FrozenIndexBuilder(root, seed).build();
}

}  // namespace zaro_addressmatch
