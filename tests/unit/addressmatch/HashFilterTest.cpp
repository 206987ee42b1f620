#include "addressmatch/index/HashFilter.h"

#include <gtest/gtest.h>

#include <random>

namespace {

using zaro_addressmatch::HashFilter;

TEST(HashFilter, hasNothingAtFirst) {
  std::mt19937_64 random;
  const HashFilter empty;
  HashFilter sized;
  sized.resize(10);
  for (int i = 0; i != 1000; ++i) {
    ASSERT_FALSE(empty.mayHave(random()));
    ASSERT_FALSE(sized.mayHave(random()));
  }
}

TEST(HashFilter, hasAllThatWasAddedAndLittleElse) {
  constexpr int kOthers = 100000;
  for (const int count : {1, 10, 1000, 200000}) {
    HashFilter filter;
    filter.resize(static_cast<std::size_t>(count));
    std::mt19937_64 random(1);
    for (int i = 0; i != count; ++i) {
      filter.add(random());
    }
    int passed = 0;
    for (int i = 0; i != kOthers; ++i) {
      passed += filter.mayHave(random()) ? 1 : 0;
    }
    EXPECT_LT(passed, kOthers / 10) << count;

    random.seed(1);
    for (int i = 0; i != count; ++i) {
      ASSERT_TRUE(filter.mayHave(random())) << i << " of " << count;
    }
  }
}

}  // namespace
