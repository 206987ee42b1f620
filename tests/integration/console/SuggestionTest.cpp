#include "console/Suggestion.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

TEST(Suggestion, isTheLikeliestWord) {
  const std::vector<std::string> known = {"match", "lint", "settings", "servers"};
  EXPECT_EQ(mostLike("mtach", known), "match");
  EXPECT_EQ(mostLike("setings", known), "settings");
  EXPECT_EQ(mostLike("lnit", known), "lint");
  EXPECT_EQ(mostLike("zebra", known), "");
  EXPECT_EQ(mostLike("", known), "");
}

}  // namespace
