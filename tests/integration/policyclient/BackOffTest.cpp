#include "policyclient/BackOff.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using Milliseconds = BackOff::Milliseconds;
const BackOff::Clock::time_point kNow = BackOff::Clock::time_point(std::chrono::hours(1));

std::vector<Milliseconds::rep> pauses(double chance, int failures) {
  BackOff backOff;
  std::vector<Milliseconds::rep> found;
  for (int i = 0; i < failures; ++i) {
    backOff.fail(kNow, chance);
    found.push_back(backOff.remaining(kNow).count());
  }
  return found;
}

TEST(BackOff, doublesUpToAMinute) {
  EXPECT_EQ(pauses(1, 9), (std::vector<Milliseconds::rep>{1000, 2000, 4000, 8000, 16000, 32000, 60000, 60000, 60000}));
}

TEST(BackOff, isShortenedByChanceToTheHalfAtMost) {
  EXPECT_EQ(pauses(0, 3), (std::vector<Milliseconds::rep>{500, 1000, 2000}));
  EXPECT_EQ(pauses(0.5, 3), (std::vector<Milliseconds::rep>{750, 1500, 3000}));
}

TEST(BackOff, isOverWithItsTime) {
  BackOff backOff;
  EXPECT_EQ(backOff.remaining(kNow), Milliseconds::zero());
  backOff.fail(kNow, 1);
  EXPECT_EQ(backOff.remaining(kNow + Milliseconds(999)), Milliseconds(1));
  EXPECT_EQ(backOff.remaining(kNow + Milliseconds(1000)), Milliseconds::zero());
}

TEST(BackOff, beginsAnewAfterASuccess) {
  BackOff backOff;
  backOff.fail(kNow, 1);
  backOff.fail(kNow, 1);
  backOff.succeed();
  EXPECT_EQ(backOff.remaining(kNow), Milliseconds::zero());
  backOff.fail(kNow, 1);
  EXPECT_EQ(backOff.remaining(kNow), Milliseconds(1000));
}

TEST(BackOff, isAsLongAsTheServerAsksUpToAMinute) {
  BackOff backOff;
  backOff.fail(kNow, 1, Milliseconds(5000));
  EXPECT_EQ(backOff.remaining(kNow), Milliseconds(5000));
  backOff.fail(kNow, 1, std::chrono::hours(1));
  EXPECT_EQ(backOff.remaining(kNow), Milliseconds(60000));
}

}  // namespace
