// Perfect hash by hash and displace: a slot of its own for every key of a set that is known beforehand.
//
// Belazzougui, Botelho, Dietzfelbinger, "Hash, Displace, and Compress", ESA 2009; the displacements are called pilots as in
// Pibiri, Trani, "PTHash: Revisiting FCH Minimal Perfect Hashing", SIGIR 2021. This one is neither minimal nor compressed.
//
// Keys fall into small buckets by their hash. A bucket's pilot is the first number that sends all of the bucket's keys to
// free slots; the biggest buckets choose first. Nearly every pilot fits into a byte; the others lie aside.
//
//   invariant   two keys of the set have two slots; any other key has some slot, so that the caller compares what lies there
//   cost        a look-up reads one pilot and computes; building takes expected linear time
//   memory      half a byte a key for the pilots, at a load factor of 95 % for the slots themselves
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "addressmatch/text/Prefetch.h"
#include "addressmatch/text/TextHash.h"

namespace zaro_addressmatch {

class PerfectHash {
 public:
  // For no key.
  PerfectHash() : m_slotCount(1), m_bucketCount(1), m_pilots(1) {}

  // Finds the pilots for a set of keys, given by their hashes. False when there are none, as for two hashes that are
  // the same. Throws std::bad_alloc.
  bool build(const std::vector<std::uint64_t>& hashes);

  // How many slots so many keys will have.
  static std::size_t slotCountFor(std::size_t keys);
  // How many slots there are.
  std::size_t slotCount() const { return m_slotCount; }
  // The slot of a key of the set; any slot for another key.
  std::size_t operator()(std::uint64_t hash) const {
    const std::size_t bucket = fastRange(hash, m_bucketCount);
    const std::uint32_t pilot = m_pilots[bucket];
    return slotWith(pilot != kBig ? pilot : bigPilot(bucket), hash);
  }

  // Prefetches the pilot that the slot depends on.
  void prefetch(std::uint64_t hash) const { prefetchLine(m_pilots.data() + fastRange(hash, m_bucketCount)); }

  // The most pilots that were tried for a bucket.
  std::size_t mostTries() const { return m_mostTries; }

 private:
  // Stands for a pilot that does not fit.
  static constexpr std::uint8_t kBig = 0xFF;

  struct BigPilot {
    std::size_t bucket;
    std::uint32_t pilot;
  };

  // Its keys, a range of those that are sorted by bucket.
  struct Bucket {
    const std::uint64_t* first;
    const std::uint64_t* last;
    std::size_t number;

    std::size_t size() const { return static_cast<std::size_t>(last - first); }
  };

  std::uint32_t bigPilot(std::size_t bucket) const;
  std::size_t slotWith(std::uint32_t pilot, std::uint64_t hash) const {
    constexpr std::uint64_t kOdd = 0x9E3779B97F4A7C15u;
    return fastRange(hash * (((pilot + 1) * kOdd) | 1), m_slotCount);
  }
  std::vector<std::uint64_t> sortedByBucket(const std::vector<std::uint64_t>& hashes,
                                            std::vector<std::size_t>& ends) const;
  static std::vector<Bucket> biggestFirst(const std::vector<std::uint64_t>& keys, const std::vector<std::size_t>& ends);
  bool placeBucket(const Bucket& bucket, std::vector<bool>& taken);
  bool takeSlots(const Bucket& bucket, std::uint32_t pilot, std::vector<bool>& taken) const;

  std::size_t m_slotCount;
  std::size_t m_bucketCount;
  std::vector<std::uint8_t> m_pilots;
  std::vector<BigPilot> m_bigPilots;  // sorted by bucket
  std::size_t m_mostTries = 0;
};

}  // namespace zaro_addressmatch
