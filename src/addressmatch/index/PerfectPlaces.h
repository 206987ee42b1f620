// A place of its own for every key of a set that is known beforehand: whoever looks for a key looks at one place only.
//
// Keys fall into small groups by their hash. A group has a number, its pilot, that was tried out until it sent all of
// the group's keys to places that were still free; the biggest groups go first. Nearly every pilot fits into a byte, so
// that they stay in the processor's caches.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "addressmatch/text/Prefetch.h"
#include "addressmatch/text/TextHash.h"

namespace zaro_addressmatch {

class PerfectPlaces {
 public:
  // Places for no key.
  PerfectPlaces() : m_count(1), m_groups(1), m_pilots(1) {}

  // Finds places for the hashes. False when there are none, as for two hashes that are the same. Throws std::bad_alloc.
  bool assign(const std::vector<std::uint64_t>& hashes);

  // How many places so many keys will have.
  static std::size_t countFor(std::size_t keys);
  // How many places there are.
  std::size_t count() const { return m_count; }
  // The place of a key, if it is one of the set; else any.
  std::size_t operator()(std::uint64_t hash) const {
    const std::size_t group = placeOf(hash, m_groups);
    const std::uint32_t pilot = m_pilots[group];
    return placeWith(pilot != kBig ? pilot : bigPilot(group), hash);
  }

  // Has the processor fetch what tells the place.
  void prefetch(std::uint64_t hash) const { prefetchLine(m_pilots.data() + placeOf(hash, m_groups)); }

  // The most numbers that were tried for a group.
  std::size_t mostTries() const { return m_mostTries; }

 private:
  // Stands for a pilot that does not fit.
  static constexpr std::uint8_t kBig = 0xFF;

  struct BigPilot {
    std::size_t group;
    std::uint32_t pilot;
  };

  // A part of the keys that are sorted by group.
  struct Group {
    const std::uint64_t* first;
    const std::uint64_t* last;
    std::size_t number;

    std::size_t size() const { return static_cast<std::size_t>(last - first); }
  };

  std::uint32_t bigPilot(std::size_t group) const;
  std::size_t placeWith(std::uint32_t pilot, std::uint64_t hash) const {
    constexpr std::uint64_t kOdd = 0x9E3779B97F4A7C15u;
    return placeOf(hash * (((pilot + 1) * kOdd) | 1), m_count);
  }
  std::vector<std::uint64_t> sortedByGroup(const std::vector<std::uint64_t>& hashes, std::vector<std::size_t>& ends) const;
  static std::vector<Group> biggestFirst(const std::vector<std::uint64_t>& keys, const std::vector<std::size_t>& ends);
  bool placeGroup(const Group& group, std::vector<bool>& taken);
  bool tryPilot(const Group& group, std::uint32_t pilot, std::vector<bool>& taken) const;

  std::size_t m_count;
  std::size_t m_groups;
  std::vector<std::uint8_t> m_pilots;
  std::vector<BigPilot> m_bigPilots;  // sorted by group
  std::size_t m_mostTries = 0;
};

}  // namespace zaro_addressmatch
