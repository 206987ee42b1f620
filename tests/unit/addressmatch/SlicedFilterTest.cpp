#include "addressmatch/index/SlicedFilter.h"

#include <gtest/gtest.h>

#include <array>
#include <random>
#include <vector>

namespace {

using zaro_addressmatch::SlicedFilter;

bool mayHave(const SlicedFilter& filter, std::uint64_t hash, unsigned int set, unsigned int sets) {
  return (filter.ask(hash) >> SlicedFilter::sliceOf(set, sets) & 1) != 0;
}

TEST(SlicedFilter, hasNothingAtFirst) {
  std::mt19937_64 random;
  const SlicedFilter empty;
  SlicedFilter sized;
  sized.resize(3, 10);
  for (int i = 0; i != 1000; ++i) {
    ASSERT_EQ(empty.ask(random()), 0u);
    ASSERT_EQ(sized.ask(random()), 0u);
  }
}

TEST(SlicedFilter, everySetHasAllThatWasAddedToItAndLittleElse) {
  constexpr int kOthers = 100000;
  for (unsigned int sets = 1; sets <= SlicedFilter::kMostSets; ++sets) {
    for (const std::size_t count : {1u, 10u, 1000u, 50000u}) {
      SlicedFilter filter;
      filter.resize(sets, count);
      for (unsigned int set = 0; set != sets; ++set) {
        std::mt19937_64 random(set);
        for (std::size_t i = 0; i != count; ++i) {
          filter.add(random(), set);
        }
      }
      std::mt19937_64 others(100);
      std::array<int, SlicedFilter::kMostSets> passed = {};
      for (int i = 0; i != kOthers; ++i) {
        const std::uint64_t hash = others();
        for (unsigned int set = 0; set != sets; ++set) {
          passed[set] += mayHave(filter, hash, set, sets) ? 1 : 0;
        }
      }
      for (unsigned int set = 0; set != sets; ++set) {
        EXPECT_LT(passed[set], kOthers / 50) << set << " of " << sets << " with " << count;
        std::mt19937_64 random(set);
        for (std::size_t i = 0; i != count; ++i) {
          ASSERT_TRUE(mayHave(filter, random(), set, sets)) << set << " of " << sets << " with " << count;
        }
      }
    }
  }
}

// No answer names a slice that is no set's.
TEST(SlicedFilter, onlySetsAreNamed) {
  for (unsigned int sets = 1; sets <= SlicedFilter::kMostSets; ++sets) {
    SlicedFilter filter;
    filter.resize(sets, 100);
    std::uint64_t all = 0;
    std::uint64_t want = 0;
    for (unsigned int set = 0; set != sets; ++set) {
      want |= std::uint64_t{1} << SlicedFilter::sliceOf(set, sets);
      std::mt19937_64 random(set);
      for (int i = 0; i != 100; ++i) {
        const std::uint64_t hash = random();
        filter.add(hash, set);
        all |= filter.ask(hash);
      }
    }
    EXPECT_EQ(all, want) << sets;
  }
}

}  // namespace
