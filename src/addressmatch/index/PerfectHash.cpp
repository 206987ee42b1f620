#include "addressmatch/index/PerfectHash.h"

#include <algorithm>
#include <array>
#include <limits>
#include <numeric>

#include "addressmatch/text/Prefetch.h"

namespace zaro_addressmatch {

namespace {

constexpr std::size_t kKeysPerBucket = 2;
constexpr std::size_t kLoadPercent = 95;
// A bigger bucket is a sign of a hash that does not scatter the keys.
constexpr std::size_t kBiggestBucket = 64;
// A bucket without a pilot among so many has two hashes that are the same.
constexpr std::uint32_t kPilots = 65536;

}  // namespace

std::size_t PerfectHash::slotCountFor(std::size_t keys) {
  return keys + keys / kLoadPercent * (100 - kLoadPercent) + 16;
}

bool PerfectHash::build(const std::vector<std::uint64_t>& hashes) {
  if (hashes.size() > std::numeric_limits<std::uint32_t>::max() / 2) {
    return false;
  }
  m_slotCount = slotCountFor(hashes.size());
  m_bucketCount = hashes.size() / kKeysPerBucket + 1;
  m_pilots.assign(m_bucketCount, 0);
  m_bigPilots.clear();
  m_mostTries = 0;

  std::vector<std::size_t> ends(m_bucketCount + 1);
  const std::vector<std::uint64_t> keys = sortedByBucket(hashes, ends);
  const std::vector<Bucket> buckets = biggestFirst(keys, ends);
  std::vector<bool> taken(m_slotCount);
  constexpr std::size_t kAhead = 8;
  for (std::size_t i = 0; i != buckets.size(); ++i) {
    if (i + kAhead < buckets.size()) {
      prefetchLine(buckets[i + kAhead].first);
    }
    if (!placeBucket(buckets[i], taken)) {
      return false;
    }
  }
  std::sort(m_bigPilots.begin(), m_bigPilots.end(),
            [](const BigPilot& one, const BigPilot& other) { return one.bucket < other.bucket; });
  return true;
}

std::uint32_t PerfectHash::bigPilot(std::size_t bucket) const {
  return std::lower_bound(m_bigPilots.begin(), m_bigPilots.end(), bucket,
                          [](const BigPilot& one, std::size_t wanted) { return one.bucket < wanted; })
      ->pilot;
}

// A counting sort. Afterwards `ends[bucket]` is one past the bucket's last key.
std::vector<std::uint64_t> PerfectHash::sortedByBucket(const std::vector<std::uint64_t>& hashes,
                                                       std::vector<std::size_t>& ends) const {
  for (const std::uint64_t hash : hashes) {
    ++ends[fastRange(hash, m_bucketCount) + 1];
  }
  std::partial_sum(ends.begin(), ends.end(), ends.begin());
  std::vector<std::uint64_t> keys(hashes.size());
  for (const std::uint64_t hash : hashes) {
    keys[ends[fastRange(hash, m_bucketCount)]++] = hash;
  }
  ends.pop_back();
  return keys;
}

std::vector<PerfectHash::Bucket> PerfectHash::biggestFirst(const std::vector<std::uint64_t>& keys,
                                                           const std::vector<std::size_t>& ends) {
  // A counting sort by size; sizes beyond the biggest allowed one count as the next.
  std::array<std::size_t, kBiggestBucket + 2> begins = {};
  const auto rankOf = [&](std::size_t bucket) {
    const std::size_t size = ends[bucket] - (bucket != 0 ? ends[bucket - 1] : 0);
    return kBiggestBucket + 1 - std::min(size, kBiggestBucket + 1);
  };
  for (std::size_t bucket = 0; bucket != ends.size(); ++bucket) {
    const std::size_t rank = rankOf(bucket);
    if (rank + 1 < begins.size()) {
      ++begins[rank + 1];
    }
  }
  std::partial_sum(begins.begin(), begins.end(), begins.begin());
  std::vector<Bucket> buckets(ends.size());
  for (std::size_t bucket = 0; bucket != ends.size(); ++bucket) {
    const std::size_t begin = bucket != 0 ? ends[bucket - 1] : 0;
    buckets[begins[rankOf(bucket)]++] = {keys.data() + begin, keys.data() + ends[bucket], bucket};
  }
  return buckets;
}

bool PerfectHash::placeBucket(const Bucket& bucket, std::vector<bool>& taken) {
  if (bucket.size() > kBiggestBucket) {
    return false;
  }
  for (std::uint32_t pilot = 0; pilot != kPilots; ++pilot) {
    if (takeSlots(bucket, pilot, taken)) {
      m_pilots[bucket.number] = static_cast<std::uint8_t>(std::min<std::uint32_t>(pilot, kBig));
      if (pilot >= kBig) {
        m_bigPilots.push_back({bucket.number, pilot});
      }
      m_mostTries = std::max<std::size_t>(m_mostTries, pilot + 1);
      return true;
    }
  }
  return false;
}

// Takes the slots that a pilot gives the keys, if all are free.
bool PerfectHash::takeSlots(const Bucket& bucket, std::uint32_t pilot, std::vector<bool>& taken) const {
  for (const std::uint64_t* key = bucket.first; key != bucket.last; ++key) {
    const std::size_t slot = slotWith(pilot, *key);
    if (taken[slot]) {
      while (key-- != bucket.first) {
        taken[slotWith(pilot, *key)] = false;
      }
      return false;
    }
    taken[slot] = true;
  }
  return true;
}

}  // namespace zaro_addressmatch
