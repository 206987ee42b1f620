#include "addressmatch/index/BloomFilter.h"

#include <gtest/gtest.h>

#include <random>

namespace {

using zaro_addressmatch::BloomFilter;

TEST(BloomFilter, hasNothingAtFirst) {
  std::mt19937_64 random;
  const BloomFilter empty;
  BloomFilter sized;
  sized.resize(10);
  for (int i = 0; i != 1000; ++i) {
    ASSERT_FALSE(empty.mayContain(BloomFilter::Key(random())));
    ASSERT_FALSE(sized.mayContain(BloomFilter::Key(random())));
  }
}

TEST(BloomFilter, hasAllThatWasAddedAndLittleElse) {
  constexpr int kOthers = 100000;
  for (const int count : {1, 10, 1000, 200000}) {
    BloomFilter filter;
    filter.resize(static_cast<std::size_t>(count));
    std::mt19937_64 random(1);
    for (int i = 0; i != count; ++i) {
      filter.add(BloomFilter::Key(random()));
    }
    int passed = 0;
    for (int i = 0; i != kOthers; ++i) {
      passed += filter.mayContain(BloomFilter::Key(random())) ? 1 : 0;
    }
    EXPECT_LT(passed, kOthers / 50) << count;

    random.seed(1);
    for (int i = 0; i != count; ++i) {
      ASSERT_TRUE(filter.mayContain(BloomFilter::Key(random()))) << i << " of " << count;
    }
  }
}

}  // namespace
