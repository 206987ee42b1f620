#include "addressmatch/index/PerfectPlaces.h"

#include <algorithm>
#include <array>
#include <limits>
#include <numeric>

#include "addressmatch/text/Prefetch.h"

namespace zaro_addressmatch {

namespace {

constexpr std::size_t kKeysPerGroup = 4;
constexpr std::size_t kFullPercent = 75;
// A bigger one is a sign of a hash that does not scatter the keys.
constexpr std::size_t kBiggestGroup = 64;
// One that is tried for longer has two hashes that are the same.
constexpr std::uint32_t kPilots = 65536;

}  // namespace

std::size_t PerfectPlaces::countFor(std::size_t keys) {
  return keys + keys / kFullPercent * (100 - kFullPercent) + 16;
}

bool PerfectPlaces::assign(const std::vector<std::uint64_t>& hashes) {
  if (hashes.size() > std::numeric_limits<std::uint32_t>::max() / 2) {
    return false;
  }
  m_count = countFor(hashes.size());
  m_groups = hashes.size() / kKeysPerGroup + 1;
  m_pilots.assign(m_groups, 0);
  m_bigPilots.clear();
  m_mostTries = 0;

  std::vector<std::size_t> ends(m_groups + 1);
  const std::vector<std::uint64_t> keys = sortedByGroup(hashes, ends);
  const std::vector<Group> groups = biggestFirst(keys, ends);
  std::vector<bool> taken(m_count);
  constexpr std::size_t kAhead = 8;
  for (std::size_t i = 0; i != groups.size(); ++i) {
    if (i + kAhead < groups.size()) {
      prefetchLine(groups[i + kAhead].first);
    }
    if (!placeGroup(groups[i], taken)) {
      return false;
    }
  }
  std::sort(m_bigPilots.begin(), m_bigPilots.end(),
            [](const BigPilot& one, const BigPilot& other) { return one.group < other.group; });
  return true;
}

std::uint32_t PerfectPlaces::bigPilot(std::size_t group) const {
  return std::lower_bound(m_bigPilots.begin(), m_bigPilots.end(), group,
                          [](const BigPilot& one, std::size_t wanted) { return one.group < wanted; })
      ->pilot;
}

// `ends[group]` is then one past the group's last key.
std::vector<std::uint64_t> PerfectPlaces::sortedByGroup(const std::vector<std::uint64_t>& hashes,
                                                        std::vector<std::size_t>& ends) const {
  for (const std::uint64_t hash : hashes) {
    ++ends[placeOf(hash, m_groups) + 1];
  }
  std::partial_sum(ends.begin(), ends.end(), ends.begin());
  std::vector<std::uint64_t> keys(hashes.size());
  for (const std::uint64_t hash : hashes) {
    keys[ends[placeOf(hash, m_groups)]++] = hash;
  }
  ends.pop_back();
  return keys;
}

std::vector<PerfectPlaces::Group> PerfectPlaces::biggestFirst(const std::vector<std::uint64_t>& keys,
                                                              const std::vector<std::size_t>& ends) {
  // Sorted by counting; whatever is too big counts as that.
  std::array<std::size_t, kBiggestGroup + 2> begins = {};
  const auto rankOf = [&](std::size_t group) {
    const std::size_t size = ends[group] - (group != 0 ? ends[group - 1] : 0);
    return kBiggestGroup + 1 - std::min(size, kBiggestGroup + 1);
  };
  for (std::size_t group = 0; group != ends.size(); ++group) {
    const std::size_t rank = rankOf(group);
    if (rank + 1 < begins.size()) {
      ++begins[rank + 1];
    }
  }
  std::partial_sum(begins.begin(), begins.end(), begins.begin());
  std::vector<Group> groups(ends.size());
  for (std::size_t group = 0; group != ends.size(); ++group) {
    const std::size_t begin = group != 0 ? ends[group - 1] : 0;
    groups[begins[rankOf(group)]++] = {keys.data() + begin, keys.data() + ends[group], group};
  }
  return groups;
}

bool PerfectPlaces::placeGroup(const Group& group, std::vector<bool>& taken) {
  if (group.size() > kBiggestGroup) {
    return false;
  }
  for (std::uint32_t pilot = 0; pilot != kPilots; ++pilot) {
    if (tryPilot(group, pilot, taken)) {
      m_pilots[group.number] = static_cast<std::uint8_t>(std::min<std::uint32_t>(pilot, kBig));
      if (pilot >= kBig) {
        m_bigPilots.push_back({group.number, pilot});
      }
      m_mostTries = std::max<std::size_t>(m_mostTries, pilot + 1);
      return true;
    }
  }
  return false;
}

// Takes the places, if all are free.
bool PerfectPlaces::tryPilot(const Group& group, std::uint32_t pilot, std::vector<bool>& taken) const {
  for (const std::uint64_t* key = group.first; key != group.last; ++key) {
    const std::size_t place = placeWith(pilot, *key);
    if (taken[place]) {
      while (key-- != group.first) {
        taken[placeWith(pilot, *key)] = false;
      }
      return false;
    }
    taken[place] = true;
  }
  return true;
}

}  // namespace zaro_addressmatch
