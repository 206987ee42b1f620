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
    if (!collectLevels() || m_levels.size() >= FrozenIndex::kBelow || roomFor(m_nameCount) > UINT32_MAX) {
      return nullptr;
    }
    m_index->m_domains.resize(roomFor(m_levels.size()));
    m_index->m_names.resize(roomFor(m_nameCount));
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
    std::uint64_t domainHash;
    std::uint32_t place;
    bool indexed;  // whether its level looks only for names that have a rank
    std::size_t size;
    std::size_t slot;
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
      m_nameCount += m_root._wildcardChild->_leaves.size();
    }
    m_path.push_back({&m_root, m_index->emptyDomainHash(), 0});
    while (!m_path.empty()) {
      Descent& above = m_path.back();
      if (above.nextChild == above.node->_children.size()) {
        m_path.pop_back();
        continue;
      }
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
      m_nameCount += node._wildcardChild->_leaves.size();
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
    while (size < m_belowCount * kBytesEach) {
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
      m_index->m_filter[level.hash >> 3 & m_index->m_filterMask] |=
          static_cast<std::uint8_t>(1u << (level.hash & 7));
    }
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
      takeNames(*below, m_index->emptyDomainHash(), FrozenIndex::kBelow);
    }
    std::uint32_t number = 0;
    for (const Level& level : m_levels) {
      takeNames(*level.node, level.hash, ++number);
      if (level.node->_wildcardChild != nullptr) {
        takeNames(*level.node->_wildcardChild, level.hash, number | FrozenIndex::kBelow);
      }
    }
    flushNames();
    return m_told;
  }

  void takeNames(const KxWildcardNode& node, std::uint64_t domainHash, std::uint32_t place) {
    for (KxListedEmailAddress* leaf : node._leaves) {
      __builtin_prefetch(leaf);
      m_names.push_back({leaf, nullptr, domainHash, place, node._leavesIndexed, 0, 0});
      if (m_names.size() == kTogether) {
        flushNames();
      }
    }
  }

  void flushNames() {
    for (Name& name : m_names) {
      name.handle = name.leaf->getNameAsPtr();
      __builtin_prefetch(name.handle);
    }
    for (const Name& name : m_names) {
      m_told = m_told && (!name.indexed || name.handle->isIndexed());
      __builtin_prefetch(name.handle->getString());
    }
    for (Name& name : m_names) {
      const char* text = textOf(*name.leaf);
      name.size = std::strlen(text);
      const std::uint64_t nameHash = hashText(m_index->m_seed, text, name.size, 0);
      const std::uint64_t hash =
          m_index->nameHashAt(nameHash, name.domainHash, (name.place & FrozenIndex::kBelow) != 0);
      name.domainHash = hash;
      name.slot = placeOf(hash, m_index->m_names.size());
      __builtin_prefetch(&m_index->m_names[name.slot], 1);
    }
    for (const Name& name : m_names) {
      addName(name);
    }
    m_names.clear();
  }

  void addName(const Name& name) {
    char padded[FrozenIndex::kNameRoom + sizeof(std::uint64_t)] = {};
    std::memcpy(padded, name.handle->getString(), std::min(name.size, FrozenIndex::kNameRoom));
    const std::size_t place =
        freeSlot(m_index->m_names, name.domainHash, [](const auto& one) { return one.leaf == nullptr; });
    m_index->m_names[place] = {name.leaf, FrozenIndex::NameKey::of(padded, name.size).at(name.place)};
  }

  const KxWildcardNode& m_root;
  std::unique_ptr<FrozenIndex> m_index;
  std::vector<Descent> m_path;
  std::vector<Level> m_levels;
  std::string m_texts;
  std::size_t m_nameCount = 0;
  std::size_t m_belowCount = 0;
  std::vector<Name> m_names;
  bool m_told = true;
};

std::unique_ptr<const FrozenIndex> FrozenIndex::build(const KxWildcardNode& root, const HashSeed& seed) {
  return FrozenIndexBuilder(root, seed).build();
}

}  // namespace zaro_addressmatch
