// How an index comes from a tree.
#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <string>
#include <utility>

#include "addressmatch/FrozenIndex.h"

#include "addressmatch/Prefetch.h"

namespace zaro_addressmatch {

class FrozenIndexBuilder {
 public:
  FrozenIndexBuilder(KxWildcardNode& root, const HashSeed& seed) : m_root(root), m_index(new FrozenIndex(root, seed)) {}

  // Null when the tree holds something that an index cannot tell, and when hashes collide.
  std::unique_ptr<const FrozenIndex> build() {
    if (!collectLevels() || m_levels.size() > std::numeric_limits<std::uint32_t>::max()) {
      return nullptr;
    }
    m_collided = !placeDomains();
    makeFilters();
    if (m_collided || !collectNames()) {
      return nullptr;
    }
    m_collided = !place(m_index->m_names, m_names) || !place(m_index->m_namesBelow, m_namesBelow);
    return m_collided ? nullptr : std::move(m_index);
  }
  // Whether it was the hashes, so that another seed may do.
  bool collided() const { return m_collided; }

 private:
  // A level that holds something; its text lies in m_texts.
  struct Level {
    const KxWildcardNode* node;
    std::uint64_t hash;
    std::size_t text;
    std::size_t textSize;
  };
  struct Descent {
    const KxWildcardNode* node;
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
  // What goes into a table of names, and its hash.
  struct Names {
    std::vector<FrozenIndex::NameSlot> slots;
    std::vector<std::uint64_t> hashes;
  };
  // So many leaves go side by side, so that the processor fetches their parts side by side.
  static constexpr std::size_t kTogether = 256;

  static bool holdsSomething(const KxWildcardNode& node) {
    return !node._leaves.empty() || node._wildcardLeaf != nullptr || node._wildcardChild != nullptr;
  }

  // Walks the tree without deeper calls for deeper domains.
  bool collectLevels() {
    if (m_root._wildcardChild != nullptr) {
      m_nameBelowCount += m_root._wildcardChild->_leaves.size();
    }
    m_path.push_back({&m_root, 0});
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
        m_path.push_back({&child, 0});
        if (holdsSomething(child) && !takeLevel(child)) {
          return false;
        }
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
      prefetchLine(child);
      prefetchLine(&child->_wildcardLeaf);
    }
    if (const KxWildcardNode* child = at(2)) {
      prefetchLine(child->getNameAsPtr());
    }
    if (const KxWildcardNode* child = at(1)) {
      prefetchLine(child->getNameAsStr());
    }
  }

  static const char* textOf(const KxIndexedStringNamedClass& named) {
    const char* text = named.getName().getString();
    return text != nullptr ? text : "";
  }

  // False for something below more labels than a search looks at.
  bool takeLevel(const KxWildcardNode& node) {
    m_nameCount += node._leaves.size();
    m_anyNameCount += node._wildcardLeaf != nullptr ? 1 : 0;
    if (node._wildcardChild != nullptr) {
      const std::size_t labels = m_path.size() - 1;
      if (labels > FrozenIndex::kMostLabels) {
        return false;
      }
      m_index->m_belowDepths |= std::uint64_t{1} << (labels - 1);
      m_nameBelowCount += node._wildcardChild->_leaves.size();
      ++m_belowCount;
    }
    const std::size_t begin = m_texts.size();
    for (std::size_t level = m_path.size() - 1; level != 0; --level) {
      m_texts += textOf(*m_path[level].node);
      m_texts += '.';
    }
    m_texts.pop_back();
    const std::size_t size = m_texts.size() - begin;
    m_levels.push_back({&node, hashText(m_index->m_seed, m_texts.data() + begin, size), begin, size});
    return true;
  }

  void makeFilters() {
    m_index->m_filterOfNames.resize(m_nameCount);
    m_index->m_filterOfWildcards.resize(m_anyNameCount + m_belowCount + m_nameBelowCount);
  }

  bool placeDomains() {
    std::vector<std::uint64_t> hashes;
    hashes.reserve(m_levels.size());
    for (const Level& level : m_levels) {
      hashes.push_back(level.hash);
    }
    FrozenIndex::Table<FrozenIndex::DomainSlot>& table = m_index->m_domains;
    if (!table.places.assign(hashes)) {
      return false;
    }
    table.slots.resize(table.places.count());
    for (std::size_t i = 0; i != m_levels.size(); ++i) {
      fill(table.slots[table.places(hashes[i])], m_levels[i], static_cast<std::uint32_t>(i + 1));
    }
    return true;
  }

  void fill(FrozenIndex::DomainSlot& slot, const Level& level, std::uint32_t number) {
    slot.number = number;
    slot.anyName = level.node->_wildcardLeaf;
    slot.size = level.textSize & 0x7FFFFFFFu;
    const char* text = m_texts.data() + level.text;
    if (level.textSize <= FrozenIndex::kDomainRoom) {
      std::memcpy(slot.words, text, level.textSize);
    } else {
      std::unique_ptr<char[]> copy(new char[level.textSize]);
      std::memcpy(copy.get(), text, level.textSize);
      slot.longText = copy.get();
      m_index->m_longTexts.push_back(std::move(copy));
    }
    if (const KxWildcardNode* below = level.node->_wildcardChild) {
      slot.anyNameBelow = below->_wildcardLeaf;
      slot.hasNamesBelow = !below->_leaves.empty();
    }
  }

  // The slots are moved to their places within the table's own memory. Each that comes to its place turns another out,
  // which goes on; several are on their way side by side, so that the processor fetches their places side by side.
  static bool place(FrozenIndex::Table<FrozenIndex::NameSlot>& table, Names& names) {
    if (!table.places.assign(names.hashes)) {
      return false;
    }
    std::vector<FrozenIndex::NameSlot>& slots = table.slots;
    slots.swap(names.slots);
    slots.resize(table.places.count());
    std::vector<bool> waits(names.hashes.size(), true);

    struct Mover {
      FrozenIndex::NameSlot slot;
      std::size_t place;
    };
    const auto send = [&](Mover& mover, std::size_t from) {
      mover.place = table.places(names.hashes[from]);
      prefetchLine(&slots[mover.place]);
      prefetchLine(mover.place < waits.size() ? &names.hashes[mover.place] : nullptr);
    };
    std::size_t next = 0;
    const auto start = [&](Mover& mover) {
      while (next != waits.size() && !waits[next]) {
        ++next;
      }
      if (next == waits.size()) {
        return false;
      }
      waits[next] = false;
      mover.slot = std::exchange(slots[next], FrozenIndex::NameSlot());
      send(mover, next);
      return true;
    };
    std::array<Mover, 12> movers;
    std::size_t moving = 0;
    while (moving != movers.size() && start(movers[moving])) {
      ++moving;
    }
    while (moving != 0) {
      for (std::size_t i = 0; i != moving;) {
        Mover& mover = movers[i];
        const std::size_t place = mover.place;
        if (place < waits.size() && waits[place]) {
          waits[place] = false;
          std::swap(mover.slot, slots[place]);
          send(mover, place);
          ++i;
          continue;
        }
        slots[place] = mover.slot;
        if (start(mover)) {
          ++i;
        } else {
          mover = movers[--moving];
        }
      }
    }
    names.hashes = std::vector<std::uint64_t>();
    return true;
  }

  bool collectNames() {
    m_names.slots.reserve(PerfectPlaces::countFor(m_nameCount));
    m_names.hashes.reserve(m_nameCount);
    if (const KxWildcardNode* below = m_root._wildcardChild) {
      m_index->m_anyAtAll = below->_wildcardLeaf;
      m_index->m_hasNamesBelowRoot = !below->_leaves.empty();
      takeNames(*below, FrozenIndex::kNoDomainHash, 0, true);
    }
    for (std::size_t i = 0; i != m_levels.size(); ++i) {
      prefetchLevels(i);
      const Level& level = m_levels[i];
      const auto number = static_cast<std::uint32_t>(i + 1);
      if (level.node->_wildcardChild != nullptr) {
        m_index->m_filterOfWildcards.add(level.hash);
      }
      if (level.node->_wildcardLeaf != nullptr) {
        m_index->m_filterOfWildcards.add(FrozenIndex::anyNameHash(level.hash));
      }
      takeNames(*level.node, level.hash, number, false);
      if (level.node->_wildcardChild != nullptr) {
        takeNames(*level.node->_wildcardChild, level.hash, number, true);
      }
    }
    flushNames();
    return m_told;
  }

  // Has the processor fetch what later levels are made of, one part after the other.
  void prefetchLevels(std::size_t next) const {
    constexpr std::size_t kStep = 6;
    if (next + 2 * kStep < m_levels.size()) {
      const KxWildcardNode& node = *m_levels[next + 2 * kStep].node;
      prefetchLine(&node._leaves);
      prefetchLine(&node._wildcardChild);
    }
    if (next + kStep < m_levels.size()) {
      const KxWildcardNode& node = *m_levels[next + kStep].node;
      prefetchLine(node._leaves.data());
      prefetchLine(node._wildcardChild != nullptr ? &node._wildcardChild->_leaves : nullptr);
    }
  }

  void takeNames(const KxWildcardNode& node, std::uint64_t domainHash, std::uint32_t number, bool below) {
    for (KxListedEmailAddress* leaf : node._leaves) {
      prefetchLine(leaf);
      m_waiting.push_back({leaf, nullptr, domainHash, number, below, node._leavesIndexed != 0, 0});
      if (m_waiting.size() == kTogether) {
        flushNames();
      }
    }
  }

  void flushNames() {
    for (Name& name : m_waiting) {
      name.handle = name.leaf->getNameAsPtr();
      prefetchLine(name.handle);
    }
    for (const Name& name : m_waiting) {
      m_told = m_told && (!name.indexed || name.handle->isIndexed());
      prefetchLine(name.handle->getString());
    }
    for (Name& name : m_waiting) {
      const char* text = textOf(*name.leaf);
      name.size = std::strlen(text);
      name.hash = m_index->nameHashAt(hashText(m_index->m_seed, text, name.size), name.hash);
      filterOf(name).prefetch(name.hash);
    }
    for (const Name& name : m_waiting) {
      addName(name);
    }
    m_waiting.clear();
  }

  HashFilter& filterOf(const Name& name) const {
    return name.below ? m_index->m_filterOfWildcards : m_index->m_filterOfNames;
  }

  void addName(const Name& name) {
    std::uint64_t words[3] = {};
    std::memcpy(words, textOf(*name.leaf), std::min(name.size, sizeof words));
    Names& names = name.below ? m_namesBelow : m_names;
    names.slots.push_back({name.leaf, FrozenIndex::NameKey::of(words, name.size).at(name.number)});
    names.hashes.push_back(name.hash);
    filterOf(name).add(name.hash);
  }

  KxWildcardNode& m_root;
  std::unique_ptr<FrozenIndex> m_index;
  std::vector<Descent> m_path;
  std::vector<Level> m_levels;
  std::string m_texts;
  std::size_t m_nameCount = 0;
  std::size_t m_anyNameCount = 0;
  std::size_t m_nameBelowCount = 0;
  std::size_t m_belowCount = 0;
  std::vector<Name> m_waiting;
  Names m_names;
  Names m_namesBelow;
  bool m_told = true;
  bool m_collided = false;
};

std::unique_ptr<const FrozenIndex> FrozenIndex::build(KxWildcardNode& root, HashSeed seed) {
  // Two hashes of 64 bits that are the same are once in a lifetime, and then a slow tree would be a riddle.
  for (int attempt = 0; attempt != 3; ++attempt, ++seed.words[0]) {
    FrozenIndexBuilder builder(root, seed);
    std::unique_ptr<const FrozenIndex> index = builder.build();
    if (index != nullptr || !builder.collided()) {
      return index;
    }
  }
  return nullptr;
}

}  // namespace zaro_addressmatch
