// What counts as UTF-8.
#include "common/Utf8.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using zaroruntime::findNotUtf8;

constexpr std::size_t kLongest = 4;

// A number in a form of so many bytes, the shortest or not. `number` must fit.
std::string inForm(unsigned int number, std::size_t length) {
  if (length == 1) {
    return std::string(1, static_cast<char>(number));
  }
  constexpr unsigned int kMarks[] = {0, 0, 0xc0, 0xe0, 0xf0};
  std::string form(length, '\0');
  for (std::size_t i = length - 1; i > 0; --i, number >>= 6) {
    form[i] = static_cast<char>(0x80 | (number & 0x3f));
  }
  form[0] = static_cast<char>(kMarks[length] | number);
  return form;
}

TEST(Utf8, everyNumberHasOneFormAtMost) {
  constexpr unsigned int kEnds[] = {0, 0x80, 0x800, 0x10000, 0x200000};  // one past what a form can hold, by its length
  for (std::size_t length = 1; length <= kLongest; ++length) {
    for (unsigned int number = 0; number < kEnds[length]; ++number) {
      const bool shortest = number >= kEnds[length - 1];
      const bool character = number != 0 && number <= 0x10ffff && (number < 0xd800 || number > 0xdfff);
      const std::size_t expected = shortest && character ? std::string::npos : 0;
      ASSERT_EQ(findNotUtf8(inForm(number, length)), expected) << number << " in " << length << " bytes";
    }
  }
}

TEST(Utf8, firstWrongByteIsFoundWhereverItStands) {
  for (std::size_t before = 0; before < 20; ++before) {
    for (const char* wrong : {"\xff", "\x80", "\xc3", "\xe6\xbc", "\xf0\x9d\x84"}) {
      for (const char* behind : {"", "x", "12345678", "\xc3\xa9"}) {
        EXPECT_EQ(findNotUtf8(std::string(before, 'x') + wrong + behind), before) << wrong << behind;
      }
    }
    EXPECT_EQ(findNotUtf8(std::string(before, 'x') + std::string(9, '\0')), before);
    EXPECT_EQ(findNotUtf8(std::string(before, 'x') + "\xc3\xa9\x80"), before + 2);
    EXPECT_EQ(findNotUtf8(std::string(before, 'x')), std::string::npos);
  }
}

}  // namespace
