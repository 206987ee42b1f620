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

}  // namespace
