// The hash table with linear probing, beside a plain map.
#include "addressmatch/text/ProbingTable.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <random>
#include <set>

namespace {

using zaro_addressmatch::ProbingTable;

struct Slot {
  unsigned int key = 0;  // 0: free
  bool isFree() const { return key == 0; }
};

// A bad hash: many keys share a home, and runs of used slots go around the end.
std::size_t homeOf(const Slot& slot, std::size_t slotCount) {
  return (slotCount - 3 + slot.key / 8) % slotCount;
}

bool has(const ProbingTable<Slot>& table, unsigned int key) {
  const auto slot = table.search(homeOf({key}, table.slotCount()), [key](const Slot& one) { return one.key == key; });
  return !table[slot].isFree();
}

TEST(ProbingTable, hasWhatASetHasWhateverIsAddedAndRemoved) {
  ProbingTable<Slot> table;
  std::set<unsigned int> expected;
  std::mt19937 random(7);
  for (int step = 0; step < 4000; ++step) {
    const unsigned int key = std::uniform_int_distribution<unsigned int>(1, 60)(random);
    if (expected.count(key) == 0) {
      if (table.isFullAt(80)) {
        table.resize(std::max<std::size_t>(8, table.slotCount() * 2), homeOf);
      }
      table.add({key}, homeOf);
      expected.insert(key);
    } else {
      const auto slot = table.search(homeOf({key}, table.slotCount()), [key](const Slot& one) { return one.key == key; });
      table.remove(slot, homeOf);
      expected.erase(key);
    }
    ASSERT_EQ(table.used(), expected.size());
    for (unsigned int one = 1; one <= 60; ++one) {
      ASSERT_EQ(has(table, one), expected.count(one) == 1) << "key " << one << " after step " << step;
    }
  }
}

TEST(ProbingTable, isFullAtItsLoadFactor) {
  ProbingTable<Slot> table;
  EXPECT_TRUE(table.isFullAt(50));
  table.resize(4, homeOf);
  table.add({1}, homeOf);
  EXPECT_FALSE(table.isFullAt(50));
  table.add({2}, homeOf);
  EXPECT_TRUE(table.isFullAt(50));
  EXPECT_FALSE(table.isFullAt(80));
}

}  // namespace
