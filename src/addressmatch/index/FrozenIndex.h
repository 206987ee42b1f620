// The index that a frozen tree answers from, in the place of a walk down its levels: the same leaves in the same order.
// docs/address-index.md shows it with an address, its pieces, the tables and the cache lines touched.
//
// Perfect hash tables of domains and of local parts at domains. The domain and those of its suffixes that have as many labels
// as one with a wildcard below are looked up: one table for all depths, an idea of Waldvogel, Varghese, Turner, Plattner,
// "Scalable High Speed IP Routing Lookups", SIGCOMM 1997.
//
// It depends on the order of what is found, on where an address is split, on letter case, and on a leaf's kinds. Rules of
// decisions (`decide/`) and weights that follow from a pattern's wildcards alone may change without it.
//
//   invariant   a slot holds the text that it stands for, so that the slot alone decides; all slots of a look-up follow from
//               the address's text alone, so that none has to wait for another. Beside the leaf lies what a decision needs
//               of it: a frozen leaf does not change
//   cost        a filter word for each piece, then two slots, and one more for each suffix that the filter does not rule out:
//               one cache miss for the time of several, since they overlap. An address of 64 characters or more is hashed
//               in one or two passes, whatever the number of its labels
//   memory      68 bytes a domain and 34 bytes a local part (64 bit), at a load factor of 95 %; 16 bits of filter for each
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "KxListedEmailAddress.h"
#include "addressmatch/index/CompressedPointers.h"
#include "addressmatch/index/IndexedLeaf.h"
#include "addressmatch/index/PerfectHash.h"
#include "addressmatch/index/Query.h"
#include "addressmatch/index/SharedFilters.h"
#include "addressmatch/leaf/PatternWeight.h"
#include "addressmatch/text/Prefetch.h"
#include "addressmatch/text/TextHash.h"

namespace zaro_addressmatch {

// Immutable once built: any number of threads may search it. What a search hands on is written where it stays: a copy
// right after it was written in pieces would have to wait until these have reached memory.
class FrozenIndex {
  struct NameSlot;
  struct DomainSlot;

 public:
  using Matches = std::vector<KxListedEmailAddress*>;

  // Appends the leaves that match; none for null. False, and nothing appended, for a text that the index does not
  // answer. Throws std::bad_alloc.
  bool find(const char* address, Matches& out) const;
  // The same for many addresses, whose cache misses overlap; appends the size of `out` to `ends` after each. Stops
  // before the first text that the index does not answer. Returns how many addresses it has answered.
  std::size_t findEach(const char* const* addresses, std::size_t count, Matches& out,
                       std::vector<std::size_t>& ends) const;

  // The steps of a search, for those who search several indexes side by side. A query is split with an index's seed,
  // and with its depths at least.
  const HashSeed& seed() const { return m_seed; }
  std::uint64_t depths() const { return m_belowDepths; }
  // False for a text without "@" that only a walk splits right.
  bool answers(const Query& query) const { return !query.isDotted || !m_hasDottedLabels; }
  // The filters that it shares, and its slice of them. To be set once, before the first search.
  const SharedFilters& filters() const { return *m_filters; }
  unsigned int slice() const { return m_slice; }
  void setFilters(const std::shared_ptr<const SharedFilters>& filters, unsigned int slice) {
    m_filters = filters;
    m_slice = slice;
  }
  // Whether it may have something for any query.
  bool isAlwaysAsked() const { return m_hasAnyAtAll || !m_deepDepths.empty(); }
  // Prefetches what `locate` reads.
  void prefetchPilots(const Query& query) const;
  // By which the references of its leaves are followed.
  const CompressedPointers& pointers() const { return m_pointers; }
  // Where a query is looked for.
  struct Place {
    Presence presence;
    const DomainSlot* domain;
    const NameSlot* name;
  };
  // Writes the place, and prefetches what `visit` reads.
  void locate(const Query& query, Presence presence, Place& place) const;
  // Calls `take(leaf)` for every leaf that matches, an IndexedLeaf, in order.
  template <typename Take>
  void visit(const Query& query, const Place& place, const Take& take) const;

 private:
  friend class FrozenIndexBuilder;

  static constexpr bool kWide = sizeof(void*) == 8;
  static constexpr std::size_t kDomainWords = kWide ? 5 : 3;
  static constexpr std::size_t kInlineDomain = kDomainWords * 8;

  struct alignas(kWide ? 32 : 4) NameSlot {
    IndexedLeaf::References leaf;
    NameKey key;  // notes what a decision does with the leaf
  };
  struct alignas(kWide ? 64 : 16) DomainSlot {
    IndexedLeaf::References anyName;       // *@DOMAIN
    IndexedLeaf::References anyNameBelow;  // *@*.DOMAIN
    std::uint32_t number;                  // from 1 on
    std::uint32_t size : 25;
    std::uint32_t hasNamesBelow : 1;  // NAME@*.DOMAIN
    std::uint32_t anyNameRole : 3;
    std::uint32_t anyNameBelowRole : 3;
    union {
      std::uint64_t words[kDomainWords];  // zeros behind the text
      const char* longText;
    };

    const char* text() const { return reinterpret_cast<const char*>(words); }
  };
  static_assert(sizeof(NameSlot) == (kWide ? 32 : 28) && sizeof(DomainSlot) == (kWide ? 64 : 48), "no padding");
  static constexpr std::size_t kMostDomainSize = (std::size_t{1} << 25) - 1;

  template <typename Slot>
  struct Table {
    PerfectHash hash;
    std::vector<Slot> slots = std::vector<Slot>(1);

    const Slot* at(std::uint64_t key) const { return slots.data() + hash(key); }
  };

  explicit FrozenIndex(const HashSeed& seed) : m_seed(seed) {}

  bool mayHaveWildcard(std::uint64_t hash) const { return (m_filters->wildcards.ask(hash) >> m_slice & 1) != 0; }
  template <typename Take>
  void visitBelow(const Query& query, const Query::Suffix& suffix, const Take& take) const;
  // Those of m_deepDepths that may have something below, the shortest first. Throws std::bad_alloc.
  std::vector<Query::Suffix> deepSuffixes(const Query& query) const;

  static bool isDomain(const DomainSlot& slot, const Query& query);
  static bool isSuffix(const DomainSlot& slot, const Query& query, const Query::Suffix& suffix);
  static bool isLongDomain(const DomainSlot& slot, const char* text, std::size_t size);
  bool isName(const NameSlot& slot, const Query& query, std::uint32_t number) const;
  bool isLongName(const NameSlot& slot, const Query& query) const;

  // What searches read of every index first.
  std::uint64_t m_belowDepths = 0;  // a bit for each number of labels that suffixes with something below have, from 1 on
  bool m_hasDottedLabels = false;
  bool m_hasAnyAtAll = false;
  unsigned int m_slice = 0;
  std::shared_ptr<const SharedFilters> m_filters;
  Table<DomainSlot> m_domains;
  Table<NameSlot> m_names;       // NAME@DOMAIN
  Table<NameSlot> m_namesBelow;  // NAME@*.DOMAIN and NAME@*
  CompressedPointers m_pointers;
  IndexedLeaf::References m_anyAtAll = {};  // *@*
  unsigned int m_anyAtAllRole = 0;
  HashSeed m_seed;
  // Numbers of labels beyond Query::kMostLabels, in order. Only a long address has so many.
  std::vector<std::size_t> m_deepDepths;
  std::vector<std::unique_ptr<char[]>> m_longTexts;
};

inline void FrozenIndex::prefetchPilots(const Query& query) const {
  m_domains.hash.prefetch(query.domainHash);
  m_names.hash.prefetch(query.fullHash);
}

inline void FrozenIndex::locate(const Query& query, Presence presence, Place& place) const {
  place.presence = presence;
  place.domain = m_domains.at(query.domainHash);
  place.name = m_names.at(query.fullHash);
  prefetchLine(place.domain);
  prefetchLine(place.name);
  if ((presence & kBelowRoot) != 0) {
    prefetchLine(m_namesBelow.at(query.belowRootHash));
  }
  for (Presence suffixes = presence / kFirstSuffix; suffixes != 0; suffixes &= suffixes - 1) {
    prefetchLine(m_domains.at(query.suffixes[__builtin_ctzll(suffixes)].hash));
  }
}

template <typename Take>
inline void FrozenIndex::visit(const Query& query, const Place& place, const Take& take) const {
  const Presence presence = place.presence;
  if ((presence & (kName | kAnyName)) != 0 && isDomain(*place.domain, query)) {
    const DomainSlot& domain = *place.domain;
    if ((presence & kName) != 0 && isName(*place.name, query, domain.number)) {
      take(IndexedLeaf(place.name->leaf, place.name->key.note(), weightOf({true, false, query.labelCount})));
    }
    if (domain.anyName.leaf != 0) {
      take(IndexedLeaf(domain.anyName, domain.anyNameRole, weightOf({false, false, query.labelCount})));
    }
  }
  // The longest suffix is the most specific one, and comes first.
  if (!m_deepDepths.empty() && !query.isShort()) {
    const std::vector<Query::Suffix> deep = deepSuffixes(query);
    std::for_each(deep.rbegin(), deep.rend(), [&](const Query::Suffix& suffix) { visitBelow(query, suffix, take); });
  }
  if (presence >= kFirstSuffix) {
    for (std::size_t i = query.suffixCount; i-- != 0;) {
      if ((presence / kFirstSuffix >> suffixBit(i) & 1) != 0 &&
          (i < kSuffixBits || mayHaveWildcard(query.suffixes[i].hash))) {
        visitBelow(query, query.suffixes[i], take);
      }
    }
  }
  if ((presence & kBelowRoot) != 0) {
    const NameSlot& name = *m_namesBelow.at(query.belowRootHash);
    if (isName(name, query, 0)) {
      take(IndexedLeaf(name.leaf, name.key.note(), weightOf({true, true, 0})));
    }
  }
  if (m_hasAnyAtAll) {
    take(IndexedLeaf(m_anyAtAll, m_anyAtAllRole, weightOf({false, true, 0})));
  }
}

// The same for what is below a suffix.
template <typename Take>
inline void FrozenIndex::visitBelow(const Query& query, const Query::Suffix& suffix, const Take& take) const {
  const DomainSlot& domain = *m_domains.at(suffix.hash);
  if (!isSuffix(domain, query, suffix)) {
    return;
  }
  if (domain.hasNamesBelow) {
    const std::uint64_t hash = nameHashAt(m_seed, query.nameHash, suffix.hash);
    if (mayHaveWildcard(hash)) {
      const NameSlot& name = *m_namesBelow.at(hash);
      if (isName(name, query, domain.number)) {
        take(IndexedLeaf(name.leaf, name.key.note(), weightOf({true, true, suffix.labelCount})));
      }
    }
  }
  if (domain.anyNameBelow.leaf != 0) {
    take(IndexedLeaf(domain.anyNameBelow, domain.anyNameBelowRole, weightOf({false, true, suffix.labelCount})));
  }
}

// Whether a slot is that of the local part at or below the domain of this number.
inline bool FrozenIndex::isName(const NameSlot& slot, const Query& query, std::uint32_t number) const {
  // For a name that is longer than what the slot holds, this compares the first characters.
  return slot.key.isSame(query.key.at(number)) && slot.leaf.leaf != 0 &&
         (query.at <= NameKey::kInline || isLongName(slot, query));
}

// Whether a slot is that of the whole domain. Its first words have been combined for its hash.
inline bool FrozenIndex::isDomain(const DomainSlot& slot, const Query& query) {
  const std::uint64_t difference = (slot.words[0] ^ query.domain[0]) | (slot.words[1] ^ query.domain[1]) |
                                   (slot.words[2] ^ query.domain[2]) | (slot.size ^ query.domainSize());
  return query.domainSize() > sizeof query.domain ? isLongDomain(slot, query.text() + query.at + 1, query.domainSize())
                                                  : difference == 0 && slot.number != 0;
}

// Whether a slot is that of a suffix.
inline bool FrozenIndex::isSuffix(const DomainSlot& slot, const Query& query, const Query::Suffix& suffix) {
  return slot.number != 0 && isLongDomain(slot, query.text() + suffix.begin, query.size - suffix.begin);
}

}  // namespace zaro_addressmatch
