#include "addressmatch/index/FrozenIndexBuilder.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <utility>

#include "addressmatch/index/SuffixHash.h"
#include "addressmatch/text/Prefetch.h"

namespace zaro_addressmatch {

namespace {

// So many leaves go through each step together, so that their cache misses overlap.
constexpr std::size_t kTogether = 256;

const char* textOf(const KxIndexedStringNamedClass& named) {
  const char* text = named.getName().getString();
  return text != nullptr ? text : "";
}

// Of a leaf at a place, or of null.
unsigned int roleOf(const KxListedEmailAddress* leaf, const Specificity& place) {
  return leaf != nullptr ? IndexedLeaf::roleOf(*leaf, place) : IndexedLeaf::kIgnored;
}

}  // namespace

void FrozenIndexBuilder::addBelowRoot(const LevelLeaves& below) {
  m_belowRoot = below;
  m_nameBelowCount += below.names.size();
}

void FrozenIndexBuilder::addDomain(const std::string& domain, std::size_t labelCount, const LevelLeaves& at,
                                   const LevelLeaves* below) {
  m_isRepresentable = m_isRepresentable && domain.size() <= FrozenIndex::kMostDomainSize;
  m_nameCount += at.names.size();
  if (below != nullptr) {
    if (labelCount <= Query::kMostLabels) {
      m_index->m_belowDepths |= std::uint64_t{1} << (labelCount - 1);
    } else {
      m_index->m_deepDepths.push_back(labelCount);
    }
    m_nameBelowCount += below->names.size();
  }
  m_domains.push_back({at, SuffixHash(m_index->m_seed, domain.data(), domain.size()).from(0), m_texts.size(),
                       static_cast<std::uint32_t>(domain.size()), static_cast<std::uint32_t>(labelCount),
                       below != nullptr ? static_cast<std::uint32_t>(m_below.size()) : kNothing});
  if (below != nullptr) {
    m_below.push_back(*below);
  }
  m_texts += domain;
}

UnfilteredIndex FrozenIndexBuilder::build() {
  if (m_domains.size() > std::numeric_limits<std::uint32_t>::max()) {
    return {};
  }
  std::vector<std::size_t>& depths = m_index->m_deepDepths;
  std::sort(depths.begin(), depths.end());
  depths.erase(std::unique(depths.begin(), depths.end()), depths.end());
  // Domains first: their numbers are part of the names' keys.
  m_collided = !placeDomains();
  if (m_collided || !collectNames()) {
    return {};
  }
  m_collided = !moveToSlots(m_index->m_names, m_names) || !moveToSlots(m_index->m_namesBelow, m_namesBelow);
  if (m_collided) {
    return {};
  }
  m_wildcardHashes.insert(m_wildcardHashes.end(), m_namesBelow.hashes.begin(), m_namesBelow.hashes.end());
  return {std::move(m_index), std::move(m_names.hashes), std::move(m_wildcardHashes)};
}

bool FrozenIndexBuilder::placeDomains() {
  std::vector<std::uint64_t> hashes;
  hashes.reserve(m_domains.size());
  for (const Domain& domain : m_domains) {
    hashes.push_back(domain.hash);
  }
  FrozenIndex::Table<FrozenIndex::DomainSlot>& table = m_index->m_domains;
  if (!table.hash.build(hashes)) {
    return false;
  }
  table.slots.resize(table.hash.slotCount());
  for (std::size_t i = 0; i != m_domains.size(); ++i) {
    fill(table.slots[table.hash(hashes[i])], m_domains[i], static_cast<std::uint32_t>(i + 1));
  }
  return true;
}

// All zero for null.
IndexedLeaf::References FrozenIndexBuilder::referencesOf(const KxListedEmailAddress* leaf) {
  if (leaf == nullptr) {
    return {0, 0};
  }
  const IndexedLeaf::References references = {m_compressor.referenceTo(leaf),
                                              m_compressor.referenceTo(leaf->getFullAddressAsStr())};
  m_isRepresentable = m_isRepresentable && references.leaf != 0;
  return references;
}

void FrozenIndexBuilder::fill(FrozenIndex::DomainSlot& slot, const Domain& domain, std::uint32_t number) {
  slot.number = number;
  slot.anyName = referencesOf(domain.at.anyName);
  slot.anyNameRole = roleOf(domain.at.anyName, {false, false, domain.labelCount}) & 7;
  const LevelLeaves below = belowOf(domain);
  slot.anyNameBelow = referencesOf(below.anyName);
  slot.anyNameBelowRole = roleOf(below.anyName, {false, true, domain.labelCount}) & 7;
  slot.hasNamesBelow = !below.names.empty();
  slot.size = domain.textSize & FrozenIndex::kMostDomainSize;
  const char* text = m_texts.data() + domain.text;
  if (domain.textSize <= FrozenIndex::kInlineDomain) {
    std::memcpy(slot.words, text, domain.textSize);
    return;
  }
  std::unique_ptr<char[]> copy(new char[domain.textSize]);
  std::memcpy(copy.get(), text, domain.textSize);
  slot.longText = copy.get();
  m_index->m_longTexts.push_back(std::move(copy));
}

// Moves the names to their slots within the table's own memory, cycle by cycle (Fich, Munro, Poblete, "Permuting in
// Place", SIAM Journal on Computing 1995): a name that comes to its slot evicts the one there, which goes on to its
// own. Twelve of them move in turns, so that their cache misses overlap.
bool FrozenIndexBuilder::moveToSlots(FrozenIndex::Table<FrozenIndex::NameSlot>& table, Names& names) {
  if (!table.hash.build(names.hashes)) {
    return false;
  }
  std::vector<FrozenIndex::NameSlot>& slots = table.slots;
  slots.swap(names.slots);
  slots.resize(table.hash.slotCount());
  std::vector<bool> waits(names.hashes.size(), true);

  struct Mover {
    FrozenIndex::NameSlot slot;
    std::size_t place;
  };
  const auto send = [&](Mover& mover, std::size_t from) {
    mover.place = table.hash(names.hashes[from]);
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
  return true;
}

bool FrozenIndexBuilder::collectNames() {
  // As many as the table will have slots, so that the names can be permuted where they are.
  m_names.slots.reserve(PerfectHash::slotCountFor(m_nameCount));
  m_names.hashes.reserve(m_nameCount);
  m_index->m_anyAtAll = referencesOf(m_belowRoot.anyName);
  m_index->m_hasAnyAtAll = m_belowRoot.anyName != nullptr;
  m_index->m_anyAtAllRole = roleOf(m_belowRoot.anyName, {false, true, 0});
  Name name = {};
  name.hash = kNoDomainHash;
  name.below = true;
  addNames(m_belowRoot, name);
  for (std::size_t i = 0; i != m_domains.size(); ++i) {
    prefetchNames(i);
    const Domain& domain = m_domains[i];
    if (domain.below != kNothing) {
      m_wildcardHashes.push_back(domain.hash);
    }
    if (domain.at.anyName != nullptr) {
      m_wildcardHashes.push_back(anyNameHash(domain.hash));
    }
    name.hash = domain.hash;
    name.number = static_cast<std::uint32_t>(i + 1);
    name.labelCount = domain.labelCount;
    name.below = false;
    addNames(domain.at, name);
    name.below = true;
    addNames(belowOf(domain), name);
  }
  flushNames();
  return m_isRepresentable;
}

void FrozenIndexBuilder::prefetchNames(std::size_t next) const {
  constexpr std::size_t kAhead = 6;
  if (next + kAhead < m_domains.size()) {
    prefetchLine(m_domains[next + kAhead].at.names.first);
    prefetchLine(belowOf(m_domains[next + kAhead]).names.first);
  }
}

// `atDomain` has what all the names have of their domain.
inline void FrozenIndexBuilder::addNames(const LevelLeaves& leaves, const Name& atDomain) {
  for (KxListedEmailAddress* leaf : leaves.names) {
    prefetchLine(leaf);
    m_waiting.push_back(atDomain);
    m_waiting.back().leaf = leaf;
    m_waiting.back().onlyRanked = leaves.onlyRanked;
    if (m_waiting.size() == kTogether) {
      flushNames();
    }
  }
}

inline void FrozenIndexBuilder::addName(const Name& name) {
  // Zeros behind the end, as the split address has them.
  std::uint64_t words[3] = {};
  std::memcpy(words, textOf(*name.leaf), std::min(name.size, sizeof words));
  Names& names = name.below ? m_namesBelow : m_names;
  names.slots.push_back(
      {referencesOf(name.leaf),
       NameKey::of(words, name.size).at(name.number).noting(roleOf(name.leaf, {true, name.below, name.labelCount}))});
  names.hashes.push_back(name.hash);
}

void FrozenIndexBuilder::flushNames() {
  for (Name& name : m_waiting) {
    name.handle = name.leaf->getNameAsPtr();
    prefetchLine(name.handle);
    prefetchLine(name.leaf->getFullAddressAsPtr());
  }
  for (const Name& name : m_waiting) {
    m_isRepresentable = m_isRepresentable && (!name.onlyRanked || name.handle->isIndexed());
    prefetchLine(name.handle->getString());
  }
  for (Name& name : m_waiting) {
    const char* text = textOf(*name.leaf);
    name.size = std::strlen(text);
    name.hash = nameHashAt(m_index->m_seed, hashText(m_index->m_seed, text, name.size), name.hash);
  }
  for (const Name& name : m_waiting) {
    addName(name);
  }
  m_waiting.clear();
}

}  // namespace zaro_addressmatch
