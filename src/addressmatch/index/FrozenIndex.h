// The index that a frozen tree answers from, in the place of a walk down its levels: the same leaves in the same order.
// docs/address-index.md shows it with an address, its pieces, the tables and the cache lines touched.
//
// Perfect hash tables of domains and of local parts at domains. The domain and those of its suffixes that have as many labels
// as one with a wildcard below are looked up: one table for all depths, an idea of Waldvogel, Varghese, Turner, Plattner,
// "Scalable High Speed IP Routing Lookups", SIGCOMM 1997.
//
//   invariant   a slot holds the text that it stands for, so that the slot alone decides; all slots of a look-up follow from
//               the address's text alone, so that none has to wait for another
//   cost        two slots, and one more for each suffix that the filter does not rule out: one cache miss for the time of
//               several, since they overlap. An address of 64 characters or more is hashed in one or two passes, whatever the
//               number of its labels
//   memory      85 bytes a domain and 43 bytes a local part (64 bit), at a load factor of 3/4; 10 bits of filter for each
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <type_traits>
#include <vector>

#include "KxListedEmailAddress.h"
#include "addressmatch/index/BloomFilter.h"
#include "addressmatch/index/PerfectHash.h"
#include "addressmatch/text/Swar.h"
#include "addressmatch/text/TextHash.h"

namespace zaro_addressmatch {

// Immutable once built: any number of threads may search it.
class FrozenIndex {
 public:
  using Matches = std::vector<KxListedEmailAddress*>;

  // Appends the leaves that match; none for null. False, and nothing appended, for a text without "@", which the index
  // does not answer. Throws std::bad_alloc.
  bool find(const char* address, Matches& out) const;
  // The same for many addresses, whose cache misses overlap; appends the size of `out` to `ends` after each. Stops
  // before the first text without "@". Returns how many addresses it has answered.
  std::size_t findEach(const char* const* addresses, std::size_t count, Matches& out,
                       std::vector<std::size_t>& ends) const;

 private:
  friend class FrozenIndexBuilder;

  // Addresses below this size are split without an allocation.
  static constexpr std::size_t kShort = 64;

  static constexpr bool kWide = sizeof(void*) == 8;
  static constexpr std::size_t kInlineName = kWide ? 19 : 15;
  static constexpr std::size_t kDomainWords = kWide ? 5 : 4;
  static constexpr std::size_t kInlineDomain = kDomainWords * 8;
  static constexpr std::size_t kLongName = 255;
  // Of suffixes with something below that a short address may have.
  static constexpr std::size_t kMostLabels = 64;

  // Identifies a leaf: a local part and the domain it stands at. In words, so that three comparisons suffice.
  struct NameKey {
    // From the lowest bit on: number of the domain, 0 for none; size of the local part, kLongName for that or more;
    // its first 3 characters. Zeros behind the last one, here and in the other words.
    std::uint64_t head;
    std::uint64_t middle;                                          // the next 8
    std::conditional_t<kWide, std::uint64_t, std::uint32_t> tail;  // and the rest, up to kInlineName

    // Of a local part's first three words, zeros behind its end.
    static NameKey of(const std::uint64_t (&words)[3], std::size_t size);
    NameKey at(std::uint32_t number) const { return {head | number, middle, tail}; }
    bool operator==(const NameKey& other) const {
      return ((head ^ other.head) | (middle ^ other.middle) | (tail ^ other.tail)) == 0;
    }
  };
  struct alignas(kWide ? 32 : 8) NameSlot {
    KxListedEmailAddress* leaf;
    NameKey key;
  };
  struct alignas(kWide ? 64 : 16) DomainSlot {
    KxListedEmailAddress* anyName;       // *@DOMAIN
    KxListedEmailAddress* anyNameBelow;  // *@*.DOMAIN
    std::uint32_t number;                // from 1 on
    std::uint32_t size : 31;
    std::uint32_t hasNamesBelow : 1;  // NAME@*.DOMAIN
    union {
      std::uint64_t words[kDomainWords];  // zeros behind the text
      const char* longText;
    };

    const char* text() const { return reinterpret_cast<const char*>(words); }
  };
  static_assert(sizeof(NameSlot) == (kWide ? 32 : 24) && sizeof(DomainSlot) == (kWide ? 64 : 48), "no padding");

  template <typename Slot>
  struct Table {
    PerfectHash hash;
    std::vector<Slot> slots = std::vector<Slot>(1);

    const Slot* at(std::uint64_t key) const { return slots.data() + hash(key); }
  };

  // The end of a domain, from a label on, below which the tree may have something.
  struct Suffix {
    std::uint64_t hash;
    std::size_t begin;
  };
  // A split address, and the hashes of its pieces.
  struct Query {
    const std::uint64_t* words;  // the text in lower case
    std::size_t size;
    std::size_t at;  // position of the "@"
    NameKey key;     // without the domain's number
    std::uint64_t nameHash;
    std::uint64_t domainHash;
    std::uint64_t fullHash;       // of the name at the domain
    std::uint64_t belowRootHash;  // of the name below the root
    const DomainSlot* domain;
    const NameSlot* name;
    bool mayBeName;
    bool mayBeAtDomain;  // the name, or any name
    bool mayBeBelowRoot;
    std::size_t suffixCount;
    Suffix suffixes[kMostLabels];  // the shortest first

    Query() {}  // leaves the members uninitialised: `split` writes those that are read
    const char* text() const { return reinterpret_cast<const char*>(words); }
  };
  struct ShortQuery : Query {
    std::uint64_t storage[wordsFor(kShort)];
  };
  // How an address is searched: not at all, in the short way, in the way for long ones, not by the index.
  enum class Kind { Nothing, Split, Long, Bare };

  explicit FrozenIndex(const HashSeed& seed) : m_seed(seed) {}

  // Splits and hashes an address.
  Kind split(const char* address, ShortQuery& query) const;
  template <typename HashFrom, typename NextDot>
  void hashPieces(Query& query, HashFrom hashFrom, NextDot nextDot) const;
  void prefetchPilots(const Query& query) const;
  void locate(Query& query) const;
  void dropAbsent(Query& query) const;
  void resolve(const Query& query, Matches& out) const;
  void resolveAt(const Query& query, Matches& out) const;
  void resolveBelow(const Query& query, const Suffix& suffix, Matches& out) const;
  void resolveBelowAll(const Query& query, Matches& out) const;
  bool findLong(const char* address, Matches& out) const;
  void resolveDeep(const Query& query, Matches& out) const;

  static bool isDomain(const DomainSlot& slot, const Query& query, std::size_t begin);
  static bool isLongDomain(const DomainSlot& slot, const char* text, std::size_t size);
  static void appendNamed(const NameSlot& slot, const Query& query, std::uint32_t number, Matches& out);

  // Hash of a local part at or below a domain.
  std::uint64_t nameHashAt(std::uint64_t nameHash, std::uint64_t domainHash) const {
    return mixed(nameHash ^ m_seed.words[1], domainHash ^ m_seed.words[3]);
  }
  static constexpr std::uint64_t kNoDomainHash = 0;
  static std::uint64_t anyNameHash(std::uint64_t domainHash) { return ~domainHash; }

  HashSeed m_seed;
  Table<DomainSlot> m_domains;
  Table<NameSlot> m_names;       // NAME@DOMAIN
  Table<NameSlot> m_namesBelow;  // NAME@*.DOMAIN and NAME@*
  // Two filters: there are far fewer wildcards than names, so that a nearer cache holds theirs.
  BloomFilter m_nameFilter;      // NAME@DOMAIN
  BloomFilter m_wildcardFilter;  // *@DOMAIN, suffixes that have something below, and names there
  // A bit for each number of labels that such a suffix has, from 1 on.
  std::uint64_t m_belowDepths = 0;
  // The numbers beyond kMostLabels, in order. Only a long address has so many labels.
  std::vector<std::size_t> m_deepDepths;
  // Below the root: NAME@* and *@*.
  bool m_hasNamesBelowRoot = false;
  KxListedEmailAddress* m_anyAtAll = nullptr;
  std::vector<std::unique_ptr<char[]>> m_longTexts;
};

}  // namespace zaro_addressmatch
