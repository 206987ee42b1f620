// The filters of indexes that were made together: one question tells which of them may have which part of a query.
#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "addressmatch/index/Query.h"
#include "addressmatch/index/SlicedFilter.h"

class KxWildcardNode;

namespace zaro_addressmatch {

class FrozenIndex;

// What an index may have for a query, a bit for each part.
using Presence = std::uint32_t;
enum Part : Presence {
  kName = 1,         // NAME@DOMAIN
  kAnyName = 2,      // *@DOMAIN
  kBelowRoot = 4,    // NAME@*
  kFirstSuffix = 8,  // something below the shortest suffix, and so on; the last bit is that of all longer ones
};
constexpr std::size_t kSuffixBits = 5;
// The bit of a suffix, from that of the first one on.
constexpr unsigned int suffixBit(std::size_t suffix) {
  return static_cast<unsigned int>(std::min(suffix, kSuffixBits - 1));
}

// That of all the indexes: a row of eight bits for each part, in which every index has its slice.
class PresenceRows {
 public:
  void set(unsigned int part, std::uint64_t row) { m_rows |= row << 8 * part; }
  // The slices of the indexes that may have anything.
  std::uint32_t slices() const {
    std::uint64_t all = m_rows | m_rows >> 32;
    all |= all >> 16;
    return static_cast<std::uint32_t>((all | all >> 8) & 0xFF);
  }
  Presence in(unsigned int slice) const {
    // The lowest bits of eight bytes side by side, as in `bytesEqual`.
    return static_cast<Presence>((m_rows >> slice & everyByte(1)) * 0x0102040810204080u >> 56);
  }

 private:
  std::uint64_t m_rows = 0;
};

// Two filters: there are far fewer wildcards than names, so that a nearer cache holds theirs.
struct SharedFilters {
  // A tree whose index answers for all addresses. Entered by the freeze, and removed when that ends, while other
  // threads search the other trees.
  struct Member {
    std::atomic<const KxWildcardNode*> root = nullptr;
    const FrozenIndex* index = nullptr;
  };

  // Those of the indexes.
  std::uint64_t depths = 0;
  // The slices of the indexes that may have something for any query, about which no filter knows.
  std::uint32_t alwaysAsked = 0;
  // From one index to the next.
  unsigned int sliceStep = SlicedFilter::kMostSets;
  // By slice.
  mutable std::array<Member, SlicedFilter::kMostSets> members;
  // NAME@DOMAIN
  SlicedFilter names;
  // *@DOMAIN, suffixes that have something below, and names there
  SlicedFilter wildcards;

  PresenceRows ask(const Query& query) const {
    PresenceRows rows;
    rows.set(0, names.ask(query.fullHash));
    rows.set(1, wildcards.ask(anyNameHash(query.domainHash)));
    rows.set(2, wildcards.ask(query.belowRootHash));
    for (std::size_t i = 0; i != query.suffixCount; ++i) {
      rows.set(3 + suffixBit(i), wildcards.ask(query.suffixes[i].hash));
    }
    return rows;
  }
  void prefetch(const Query& query) const {
    names.prefetch(query.fullHash);
    wildcards.prefetch(anyNameHash(query.domainHash));
    wildcards.prefetch(query.belowRootHash);
    for (std::size_t i = 0; i != query.suffixCount; ++i) {
      wildcards.prefetch(query.suffixes[i].hash);
    }
  }
};

// An index that has no filters yet, and the hashes that belong into them.
struct UnfilteredIndex {
  std::unique_ptr<FrozenIndex> index;
  std::vector<std::uint64_t> names;
  std::vector<std::uint64_t> wildcards;

  std::size_t size() const { return names.size() + wildcards.size(); }
};

// Gives indexes their filters, up to SlicedFilter::kMostSets neighbours the same. Throws std::bad_alloc.
void shareFilters(std::vector<UnfilteredIndex>& indexes);

}  // namespace zaro_addressmatch
