#include "console/DisplayWidth.h"

#include <gtest/gtest.h>

#include <clocale>
#include <string>

namespace {

struct WidthRow {
  const char* label;
  std::string text;
  std::size_t columns;
};

const WidthRow kWidths[] = {
    {"nothing", "", 0},
    {"letters", "abc", 3},
    {"umlaut", "\u00fc", 1},
    {"ideographs", "\u65e5\u672c", 4},
    {"full-width letter", "\uff21", 2},
    {"half-width katakana", "\uff71", 1},
    {"hangul", "\ud55c", 2},
    {"combining", "e\u0301", 1},
    {"only combining", "\u0301", 0},
    {"emoji", "\U0001F600", 2},
    {"no UTF-8", "\xff\xfe", 2},
    {"cut short", "\xe6\x97", 2},
};

TEST(DisplayWidth, countsColumnsWhateverTheLocale) {
  const std::string before = std::setlocale(LC_ALL, nullptr);
  for (const WidthRow& row : kWidths) {
    EXPECT_EQ(displayWidth(row.text), row.columns) << row.label;
  }
  EXPECT_EQ(std::setlocale(LC_ALL, nullptr), before);
}

struct CutRow {
  const char* label;
  std::string text;
  std::size_t columns;
  std::string cut;
};

const CutRow kCuts[] = {
    {"fits", "abc", 3, "abc"},
    {"one too many", "abcd", 3, "ab\u2026"},
    {"wide", "\u65e5\u672c\u8a9e", 5, "\u65e5\u672c\u2026"},
    {"half of a wide one is left", "\u65e5\u672c\u8a9e", 4, "\u65e5\u2026"},
    {"an accent stays with its letter", "ae\u0301bc", 3, "ae\u0301\u2026"},
    {"the column of the ellipsis alone", "abc", 1, "\u2026"},
};

TEST(DisplayWidth, cutTextsFit) {
  for (const CutRow& row : kCuts) {
    EXPECT_EQ(cutToWidth(row.text, row.columns), row.cut) << row.label;
    EXPECT_LE(displayWidth(row.cut), row.columns) << row.label;
  }
}

}  // namespace
