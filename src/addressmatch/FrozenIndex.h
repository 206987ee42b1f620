// What a frozen tree answers from, in the place of a walk down its levels: the same leaves in the same order.
//
// The places of the domain, of its suffixes and of the local part follow from the address's text alone, so that the
// processor fetches them side by side; each holds the text that it stands for, so that one cache line settles it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <type_traits>
#include <vector>

#include "KxWildcardNode.h"
#include "TextHash.h"

namespace zaro_addressmatch {

// Immutable once built: any number of threads may search it.
class FrozenIndex {
 public:
  using Matches = std::vector<KxListedEmailAddress*>;

  // How full the tables are kept: the fuller, the longer a search for what is not there.
  static constexpr unsigned int kFullPercent = 55;

  // The index of everything below a root, or null when the tree holds something that only a walk treats right. Throws
  // std::bad_alloc.
  static std::unique_ptr<const FrozenIndex> build(const KxWildcardNode& root, const HashSeed& seed = processHashSeed());

  // Appends the leaves that match. False, and nothing done, for a text without "@", which is left to the walk. Throws
  // std::bad_alloc.
  bool find(const char* address, Matches& out) const;

  // The same for many addresses, whose cache misses overlap; null addresses match nothing. Calls `done(i)` when the
  // leaves of address i have been appended, in order, and `walk(i)` before it for a text that is left to the walk.
  template <typename Walk, typename Done>
  void findEach(const char* const* addresses, std::size_t count, Matches& out, Walk walk, Done done) const {
    std::vector<ShortQuery> queries(count < kTogether ? count : kTogether);
    for (std::size_t first = 0; first < count; first += kTogether) {
      const std::size_t size = count - first < kTogether ? count - first : kTogether;
      for (std::size_t i = 0; i != size; ++i) {
        queries[i].kind = prepareShort(addresses[first + i], queries[i]);
      }
      for (std::size_t i = 0; i != size; ++i) {
        const char* address = addresses[first + i];
        if (queries[i].kind == Kind::Split) {
          resolve(queries[i], out);
        } else if (queries[i].kind != Kind::Nothing && !find(address, out)) {
          walk(first + i);
        }
        done(first + i);
      }
    }
  }

  // How many places a search looks at, at most: for names and for domains.
  std::size_t longestProbe() const { return m_longestProbe; }

 private:
  friend class FrozenIndexBuilder;

  static constexpr std::size_t kTogether = 24;
  // Addresses below this size are split without an allocation.
  static constexpr std::size_t kShort = 64;
  // Zeros behind a text, so that its last word can be read whole.
  static constexpr std::size_t kPadding = 24;

  static constexpr bool kWide = sizeof(void*) == 8;
  static constexpr std::size_t kNameRoom = kWide ? 19 : 15;
  static constexpr std::size_t kDomainRoom = kWide ? 40 : 32;

  // What a leaf is known by: a local part and where it stands. In words, so that a few comparisons settle it.
  struct NameKey {
    // From the lowest bit on: number of the domain, 0 for none; size of the local part, kLongName for that or more;
    // its first 3 characters. Zeros behind the last one, here and in the other words.
    std::uint64_t head;
    std::uint64_t middle;                                              // the next 8
    std::conditional_t<kWide, std::uint64_t, std::uint32_t> tail;  // and the rest, up to kNameRoom

    static NameKey of(const std::uint64_t* padded, std::size_t size);
    NameKey at(std::uint32_t place) const { return {head | place, middle, tail}; }
    bool operator==(const NameKey& other) const {
      return ((head ^ other.head) | (middle ^ other.middle) | (tail ^ other.tail)) == 0;
    }
  };
  struct alignas(kWide ? 32 : 8) NameSlot {
    KxListedEmailAddress* leaf;  // null: free
    NameKey key;
  };
  struct alignas(kWide ? 64 : 16) DomainSlot {
    KxListedEmailAddress* anyName;       // *@DOMAIN
    KxListedEmailAddress* anyNameBelow;  // *@*.DOMAIN
    std::uint32_t number;                // from 1 on; 0: free
    std::uint32_t size : 30;
    std::uint32_t hasNames : 1;       // NAME@DOMAIN
    std::uint32_t hasNamesBelow : 1;  // NAME@*.DOMAIN
    union {
      char text[kDomainRoom];  // zeros behind it
      const char* longText;
    };
  };
  static_assert(sizeof(NameSlot) == (kWide ? 32 : 24) && sizeof(DomainSlot) == (kWide ? 64 : 48), "no padding");

  static constexpr std::size_t kLongName = 255;

  enum class Kind { Nothing, Split, Long, Whole };

  // The end of a domain, from a label on, below which the tree may have something.
  struct Suffix {
    std::uint64_t hash;
    std::size_t begin;
  };
  struct Query {
    const std::uint64_t* words;  // the text in lower case, with kPadding zeros behind it
    std::size_t size;
    std::size_t at;
    std::uint64_t nameHash;
    std::uint64_t domainHash;
    Suffix* suffixes;  // the shortest first
    std::size_t suffixCount;
    Kind kind;
    NameKey key;

    const char* text() const { return reinterpret_cast<const char*>(words); }
  };
  struct ShortQuery : Query {
    ShortQuery() {}  // leaves everything for `prepareShort`
    std::uint64_t room[(kShort + kPadding) / 8];
    Suffix suffixRoom[kShort];
  };

  explicit FrozenIndex(const HashSeed& seed) : m_seed(seed) {}

  static constexpr std::size_t kNoDot = static_cast<std::size_t>(-1);

  // Splits and hashes an address, and has the processor fetch what its search will look at.
  Kind prepareShort(const char* address, ShortQuery& query) const;
  // `room` is as big as `roomFor` says.
  void prepareLong(const char* address, std::size_t size, Query& query, char* room) const;
  static std::size_t roomFor(std::size_t size);
  // The text of a query that has one, put in lower case into `words`; `mark(offset, word)` sees every word.
  template <typename Mark>
  static void lower(const char* address, std::size_t size, std::uint64_t* words, Mark mark);
  template <typename NextDot>
  void hashAll(Query& query, NextDot nextDot) const;
  void resolve(const Query& query, Matches& out) const;
  static void findName(const std::vector<NameSlot>& names, const Query& query, std::uint32_t place, std::uint64_t hash,
                       Matches& out);
  void findNameBelow(const Query& query, std::uint32_t number, std::uint64_t domainHash, Matches& out) const;
  const DomainSlot* findDomain(std::uint64_t hash, const char* text, std::size_t size) const;

  // Hash of a local part at or below a domain.
  std::uint64_t nameHashAt(std::uint64_t nameHash, std::uint64_t domainHash) const {
    return mixed(nameHash ^ m_seed.words[1], domainHash ^ m_seed.words[3]);
  }
  static constexpr std::uint64_t kEmptyDomainHash = 0;
  bool mayHaveBelow(std::uint64_t hash) const { return (m_filter[hash >> 3 & m_filterMask] & 1u << (hash & 7)) != 0; }

  HashSeed m_seed;
  std::vector<DomainSlot> m_domains;  // this and the next two are never empty
  std::vector<NameSlot> m_names;      // NAME@DOMAIN
  std::vector<NameSlot> m_namesBelow;  // NAME@*.DOMAIN and NAME@*
  // Bits by hash: the suffixes that have something below, and the names there.
  std::vector<std::uint8_t> m_filter;
  std::uint64_t m_filterMask = 0;
  // Below the root: NAME@* and *@*.
  bool m_hasNamesBelowRoot = false;
  KxListedEmailAddress* m_anyAtAll = nullptr;
  std::vector<std::unique_ptr<char[]>> m_longTexts;
  std::size_t m_longestProbe = 0;
};

}  // namespace zaro_addressmatch
