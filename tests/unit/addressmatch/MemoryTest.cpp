// What a big tree holds of the heap.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "AllocationCount.h"
#include "KxWildcardEmail.h"
#include "MailData.h"
#include "scripted/Platform.h"

namespace {

// A run may ask for more.
std::size_t numberOfPatterns() {
  const char* wanted = std::getenv("ZARO_MEMORY_PATTERNS");
  return wanted != nullptr ? std::strtoul(wanted, nullptr, 10) : 50000;
}

class TreeMemory : public scripted::PlatformTest {};

TEST_F(TreeMemory, frozenTreeWithItsTextsTakesAFewHundredBytesAPattern) {
  constexpr std::size_t kMost = sizeof(void*) == 8 ? 280 : 210;
  const bench::MailData data = bench::makeMailData(numberOfPatterns(), 0);
  const AllocationCount count;
  KxStringtable table;
  KxWildcardRootNode tree(&table);
  for (const std::string& pattern : data.patterns) {
    ASSERT_TRUE(tree.addAddressPattern(pattern.c_str(), 1, nullptr, nullptr));
  }
  KxWildcardEmail::initScanTimeMode();
  const auto bytes = static_cast<std::size_t>(count.bytes());
  std::printf("%zu patterns, %.1f bytes each\n", data.patterns.size(),
              static_cast<double>(bytes) / static_cast<double>(data.patterns.size()));
  EXPECT_LE(bytes / data.patterns.size(), kMost);
}

// Every domain is a level of its own with one leaf, or with "*" at or below it.
TEST_F(TreeMemory, levelsAndLeavesShareTheirPiecesOfTheHeap) {
  constexpr std::size_t kPatterns = 10000;
  KxStringtable table;
  KxWildcardRootNode tree(&table);
  const AllocationCount count;
  for (std::size_t number = 0; number != kPatterns; ++number) {
    const char* const name = number % 3 == 0 ? "user@d" : number % 3 == 1 ? "*@d" : "*@*.d";
    ASSERT_TRUE(tree.addAddressPattern((name + std::to_string(number) + ".test").c_str(), 1, nullptr, nullptr));
  }
  // The table's first texts, and a vector for each level that has a leaf of a name.
  EXPECT_LE(count.allocations(), 1024 + kPatterns / 3 + kPatterns / 10);
}

}  // namespace
