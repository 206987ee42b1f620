#include "addressmatch/index/SuffixHash.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <set>
#include <string>

namespace {

using namespace zaro_addressmatch;

std::string randomText(std::size_t size) {
  std::mt19937 random(7);
  std::string text;
  while (text.size() != size) {
    text += static_cast<char>('a' + random() % 26);
  }
  return text;
}

TEST(SuffixHash, isThatOfTheSuffixAlone) {
  const std::string text = randomText(300);
  SuffixHash suffixes(processHashSeed(), text.data(), text.size());
  for (std::size_t begin = text.size(); begin-- != 0;) {
    // No byte is there beside the suffix.
    const std::size_t size = text.size() - begin;
    const std::unique_ptr<char[]> alone(new char[size]);
    text.copy(alone.get(), size, begin);
    ASSERT_EQ(suffixes.from(begin), SuffixHash(processHashSeed(), alone.get(), size).from(0)) << begin;
  }
}

TEST(SuffixHash, doesNotDependOnWhichSuffixesAreAskedFor) {
  const std::string text = randomText(500);
  SuffixHash everySeventh(processHashSeed(), text.data(), text.size());
  for (std::size_t size = 0; size < text.size(); size += 7) {
    const std::size_t begin = text.size() - size;
    ASSERT_EQ(everySeventh.from(begin), SuffixHash(processHashSeed(), text.data(), text.size()).from(begin)) << begin;
  }
}

TEST(SuffixHash, dependsOnEveryByteAndOnTheSize) {
  std::set<std::uint64_t> hashes;
  const std::string text(200, 'a');
  SuffixHash suffixes(processHashSeed(), text.data(), text.size());
  for (std::size_t size = 1; size <= text.size(); ++size) {
    hashes.insert(suffixes.from(text.size() - size));
  }
  for (std::size_t place = 0; place != text.size(); ++place) {
    std::string other = text;
    other[place] = 'b';
    hashes.insert(SuffixHash(processHashSeed(), other.data(), other.size()).from(0));
  }
  EXPECT_EQ(hashes.size(), 2 * text.size());
}

}  // namespace
