// Makes an index of the leaves that a tree hands over.
//
//   cost     linear; the parts of a leaf (leaf, name, text) are prefetched for 256 leaves before the next part
//   memory   while it works: 64 bytes and the text of each domain, 32 bytes more where it has patterns below, and the hashes
//            of the names. The slots of the names are permuted within their own memory
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "KxListedEmailAddress.h"
#include "addressmatch/index/FrozenIndex.h"
#include "addressmatch/index/SharedFilters.h"
#include "addressmatch/leaf/LeafRange.h"
#include "addressmatch/text/TextHash.h"

namespace zaro_addressmatch {

// The leaves of one level of a tree.
struct LevelLeaves {
  LeafRange names;                          // concrete local parts
  KxListedEmailAddress* anyName = nullptr;  // "*", or null
  bool onlyRanked = false;                  // the level finds only names that have a rank
};

// Phases: `addBelowRoot` and `addDomain` in any order, then `build` once. Everything throws std::bad_alloc, and the
// builder is then of no use.
class FrozenIndexBuilder {
 public:
  explicit FrozenIndexBuilder(const HashSeed& seed)
      : m_index(new FrozenIndex(seed)), m_compressor(m_index->m_pointers) {}

  // Adds NAME@* and *@*.
  void addBelowRoot(const LevelLeaves& below);
  // Adds what a tree holds at a domain, and below it unless `below` is null. `labelCount` is that of the domain, a text
  // in lower case.
  void addDomain(const std::string& domain, std::size_t labelCount, const LevelLeaves& at, const LevelLeaves* below);

  // Notes that the tree has a label with a dot, which only texts without "@" give.
  void addDottedLabel() { m_index->m_hasDottedLabels = true; }

  // Without an index when a leaf has a name that only a walk treats right or cannot be referred to, and when two hashes are the same.
  UnfilteredIndex build();
  // Whether two hashes were the same, so that another seed may do.
  bool hasCollided() const { return m_collided; }

 private:
  struct Domain {
    LevelLeaves at;
    std::uint64_t hash;
    std::size_t text;        // where it begins in m_texts
    std::uint32_t textSize;  // cut when the domain is too long for an index
    std::uint32_t labelCount;
    std::uint32_t below;  // the place in m_below, or kNothing
  };
  static constexpr std::uint32_t kNothing = static_cast<std::uint32_t>(-1);
  // A leaf on its way into the index.
  struct Name {
    KxListedEmailAddress* leaf;
    const KxIndexedString* handle;
    std::uint64_t hash;  // of its domain, then its own
    std::uint32_t number;
    unsigned int labelCount;  // of its domain
    bool below;
    bool onlyRanked;
    std::size_t size;
  };
  // What goes into a table of names, and its hash.
  struct Names {
    std::vector<FrozenIndex::NameSlot> slots;
    std::vector<std::uint64_t> hashes;
  };

  LevelLeaves belowOf(const Domain& domain) const {
    return domain.below != kNothing ? m_below[domain.below] : LevelLeaves();
  }
  bool placeDomains();
  void fill(FrozenIndex::DomainSlot& slot, const Domain& domain, std::uint32_t number);
  bool collectNames();
  void prefetchNames(std::size_t next) const;
  void addNames(const LevelLeaves& leaves, const Name& atDomain);
  IndexedLeaf::References referencesOf(const KxListedEmailAddress* leaf);
  void flushNames();
  void addName(const Name& name);
  static bool moveToSlots(FrozenIndex::Table<FrozenIndex::NameSlot>& table, Names& names);

  std::unique_ptr<FrozenIndex> m_index;
  PointerCompressor m_compressor;
  LevelLeaves m_belowRoot;
  std::deque<Domain> m_domains;  // which nothing has to be copied for when it grows
  std::vector<LevelLeaves> m_below;
  std::string m_texts;
  std::size_t m_nameCount = 0;
  std::size_t m_nameBelowCount = 0;
  std::vector<Name> m_waiting;
  Names m_names;
  Names m_namesBelow;
  std::vector<std::uint64_t> m_wildcardHashes;  // of domains with any name at or below them
  bool m_isRepresentable = true;
  bool m_collided = false;
};

}  // namespace zaro_addressmatch
