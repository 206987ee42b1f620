// Texts by words: lower case, marks, hashes, order.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "addressmatch/text/RadixSort.h"
#include "addressmatch/text/Swar.h"
#include "addressmatch/text/TextHash.h"

namespace {

using namespace zaro_addressmatch;

std::string randomText(std::mt19937& random, std::size_t size) {
  static const char kCharacters[] = "az@.AZ@[`{\x80\xC3\xFF-09";
  std::string text;
  while (text.size() != size) {
    text += kCharacters[random() % (sizeof kCharacters - 1)];
  }
  return text;
}

// A copy that ends where its memory ends, so that a sanitizer sees a read behind it.
std::unique_ptr<char[]> exactCopy(const std::string& text) {
  std::unique_ptr<char[]> copy(new char[text.size()]);
  std::memcpy(copy.get(), text.data(), text.size());
  return copy;
}

TEST(Swar, onlyCapitalsOfAsciiChange) {
  std::mt19937 random(1);
  for (int i = 0; i < 5000; ++i) {
    const std::string text = randomText(random, static_cast<std::size_t>(i) % 150);
    std::vector<std::uint64_t> words(wordsFor(text.size()), ~std::uint64_t{0});
    lower(exactCopy(text).get(), text.size(), words.data());
    std::string want = text;
    std::transform(want.begin(), want.end(), want.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    const char* got = reinterpret_cast<const char*>(words.data());
    ASSERT_EQ(std::string(got, text.size()), want);
    ASSERT_EQ(std::string(got + text.size(), kPadding), std::string(kPadding, '\0'));
    for (std::size_t offset = 0; offset <= text.size(); ++offset) {
      ASSERT_EQ(wordAt(words.data(), offset), load8(got + offset));
      std::uint64_t four[4];
      fourWordsAt(words.data(), offset, four);
      ASSERT_EQ(std::memcmp(four, got + offset, std::min(sizeof four, text.size() + kPadding - offset)), 0);
    }
  }
}

TEST(Swar, marksTellEveryAtAndDot) {
  std::mt19937 random(2);
  for (int i = 0; i < 5000; ++i) {
    const std::string text = randomText(random, static_cast<std::size_t>(i) % 64);
    std::vector<std::uint64_t> words(wordsFor(text.size()));
    lower(text.data(), text.size(), words.data());
    std::uint64_t ats = 0;
    std::uint64_t dots = 0;
    for (std::size_t at = 0; at != text.size(); ++at) {
      ats |= std::uint64_t{text[at] == '@'} << at;
      dots |= std::uint64_t{text[at] == '.'} << at;
    }
    std::vector<std::uint64_t> lowered(words.size(), ~std::uint64_t{0});
    for (const Marks& marks :
         {lowerMarked(exactCopy(text).get(), text.size(), lowered.data()), marksOfWords(words.data(), text.size())}) {
      ASSERT_EQ(marks.ats, ats) << text;
      ASSERT_EQ(marks.dots, dots) << text;
    }
    const std::size_t written = text.size() / 8 + 1 + kPadding / 8;
    ASSERT_TRUE(std::equal(words.begin(), words.begin() + static_cast<std::ptrdiff_t>(written), lowered.begin())) << text;
  }
}

TEST(TextHash, dependsOnEveryByteSizeAndSeed) {
  const HashSeed seed = processHashSeed();
  std::set<std::uint64_t> hashes;
  for (std::size_t size = 0; size != 70; ++size) {
    std::string text(size, 'a');
    hashes.insert(hashText(seed, text.data(), size));
    for (std::size_t at = 0; at != size; ++at) {
      text[at] = 'b';
      hashes.insert(hashText(seed, text.data(), size));
      text[at] = 'a';
    }
  }
  EXPECT_EQ(hashes.size(), 70u + 69u * 70u / 2u);
  HashSeed other = seed;
  ++other.words[0];
  EXPECT_NE(hashText(seed, "text", 4), hashText(other, "text", 4));
}

TEST(TextHash, placesAreSpreadOverAllOfThem) {
  EXPECT_EQ(fastRange(0, 10), 0u);
  EXPECT_EQ(fastRange(~std::uint64_t{0}, 10), 9u);
  EXPECT_EQ(fastRange(std::uint64_t{1} << 63, 10), 5u);
}

TEST(RadixSort, isThatOfTheBytes) {
  std::mt19937 random(3);
  const std::string common(200, 'x');
  std::set<std::string> wanted;
  for (int i = 0; i < 6000; ++i) {
    // Some share their beginning, up to more than is compared at once.
    wanted.insert(common.substr(0, (random() % 4) * 60) + randomText(random, random() % 12));
  }
  std::vector<std::string> texts(wanted.begin(), wanted.end());
  std::shuffle(texts.begin(), texts.end(), random);
  std::vector<Keyed<const std::string>> items;
  for (const std::string& text : texts) {
    items.push_back({0, &text});
  }
  sortByText(
      items.data(), items.data() + items.size(), [](const std::string& text) { return text.c_str(); }, 0);
  std::vector<std::string> got;
  for (const auto& item : items) {
    got.push_back(*item.owner);
  }
  std::sort(texts.begin(), texts.end(),
            [](const std::string& a, const std::string& b) { return std::strcmp(a.c_str(), b.c_str()) < 0; });
  EXPECT_EQ(got, texts);
}

}  // namespace
