#include "patterns/Decisions.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include "patterns/PatternTrees.h"
#include "patterns/TreeLoading.h"
#include "support/NothrowAllocationFailure.h"
#include "support/TemporaryDirectory.h"

namespace {

TEST(Decisions, outOfMemoryIsAFailureAndNeverAnotherAnswer) {
  setenv("ZARO_LOG_LEVEL", "0", 1);  // the library tells of every failure
  const zarotest::TemporaryDirectory directory;
  const std::string list = directory.write("list", "user@a.test\n*@*.test\t2\n");
  Progress progress;
  PatternTrees trees;
  loadTrees({list}, PatternSpelling::Literal, trees, progress);
  // Not frozen, so that every search asks for memory.
  const std::vector<std::string> addresses = {"user@a.test", "x@a.test", "user@other"};
  bool happened = true;
  for (int allocation = 1; happened; ++allocation) {
    const NothrowAllocationFailure failure(allocation);
    try {
      std::vector<unsigned int> codes;
      for (const Decision& decision : decide(addresses, trees)) {
        codes.push_back(decision.code);
      }
      EXPECT_EQ(codes, (std::vector<unsigned int>{129, 2, 0})) << "allocation " << allocation;
    } catch (const std::bad_alloc&) {
    }
    happened = failure.happened();
    EXPECT_TRUE(happened || allocation > 3);
  }
}

}  // namespace
