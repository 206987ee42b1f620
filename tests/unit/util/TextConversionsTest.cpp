// Numbers to texts and back, and trimming.
#include "TextConversions.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <locale>
#include <string>
#include <vector>

#include "PlainText.h"

namespace {

// Puts numbers into groups and spells digits as nobody else does, for the time of a test.
class OddGlobalLocale {
 public:
  OddGlobalLocale() : m_previous(std::locale::global(std::locale(std::locale::classic(), new Grouped))) {}
  ~OddGlobalLocale() { std::locale::global(m_previous); }

  OddGlobalLocale(const OddGlobalLocale&) = delete;
  OddGlobalLocale& operator=(const OddGlobalLocale&) = delete;

 private:
  struct Grouped : std::numpunct<char> {
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
  };

  std::locale m_previous;
};

// Every text of up to `length` characters of an alphabet.
std::vector<std::string> allTexts(const std::string& alphabet, std::size_t length) {
  std::vector<std::string> texts = {""};
  std::size_t first = 0;
  for (std::size_t round = 0; round < length; ++round) {
    const std::size_t last = texts.size();
    for (; first < last; ++first) {
      for (const char character : alphabet) {
        texts.push_back(texts[first] + character);
      }
    }
  }
  return texts;
}

std::string trimmed(std::string text) {
  trim(text);
  return text;
}

}  // namespace

TEST(ToString, writesPlainDecimals) {
  EXPECT_EQ(toString(0), "0");
  EXPECT_EQ(toString(-1), "-1");
  EXPECT_EQ(toString(7), "7");
  EXPECT_EQ(toString(1234567), "1234567");
  EXPECT_EQ(toString(INT_MAX), "2147483647");
  EXPECT_EQ(toString(INT_MIN), "-2147483648");
}

TEST(ToString, writesUnsignedNumbersWithoutASign) {
  EXPECT_EQ(toString(0U), "0");
  EXPECT_EQ(toString(2147483648U), "2147483648");
  EXPECT_EQ(toString(4294967295U), "4294967295");
}

TEST(ToString, writesLongNumbersOfEitherWordSize) {
  EXPECT_EQ(toString(0L), "0");
  EXPECT_EQ(toString(-1L), "-1");
  if (sizeof(long) == 8) {
    EXPECT_EQ(toString(LONG_MAX), "9223372036854775807");
    EXPECT_EQ(toString(LONG_MIN), "-9223372036854775808");
  } else {
    EXPECT_EQ(toString(LONG_MAX), "2147483647");
    EXPECT_EQ(toString(LONG_MIN), "-2147483648");
  }
}

TEST(ToString, ignoresTheGlobalLocale) {
  const OddGlobalLocale odd;
  EXPECT_EQ(toString(1234567L), "1234567");
  EXPECT_EQ(toString(-1234567), "-1234567");
  EXPECT_EQ(toString(1234567U), "1234567");
}

TEST(ToInt, readsTheNumberAtTheStart) {
  const struct {
    const char* text;
    int value;
  } cases[] = {
      {"0", 0},
      {"42", 42},
      {" 42", 42},
      {"-7", -7},
      {"+7", 7},
      {"12abc", 12},
      {"12 34", 12},
      {"\t\r\n\v\f5", 5},
      {"007", 7},
      {"0x10", 0},
      {"1e3", 1},
      {"1.9", 1},
      {"1,000", 1},
      {"12-", 12},
      {"2147483647", INT_MAX},
      {"-2147483648", INT_MIN},
      {"0000000000000000000000000000000000000000017", 17},
      {"-0", 0},
  };
  for (const auto& row : cases) {
    EXPECT_EQ(toInt(row.text), row.value) << row.text;
  }
}

TEST(ToInt, answersMinusOneForWhatIsNoNumber) {
  for (const char* text : {"", "abc", "   ", "-", "+", "--1", "+-1", "- 1", "x1", ".5", "=1", "\u00A01"}) {
    EXPECT_EQ(toInt(text), -1) << text;
  }
}

TEST(ToInt, answersMinusOneForWhatThirtyTwoBitsCannotHold) {
  for (const char* text :
       {"2147483648", "4294967295", "4294967296", "-2147483649", "-4294967296", "9223372036854775807",
        "9223372036854775808", "18446744073709551617", "99999999999999999999999999", "-99999999999999999999999999"}) {
    EXPECT_EQ(toInt(text), -1) << text;
  }
}

TEST(ToInt, stopsAtANul) {
  EXPECT_EQ(toInt(std::string("1\0002", 3)), 1);
  EXPECT_EQ(toInt(std::string("\0001", 2)), -1);
}

TEST(ToUInt, readsTheNumberAtTheStart) {
  const struct {
    const char* text;
    unsigned int value;
  } cases[] = {
      {"0", 0},
      {"42", 42},
      {" 42", 42},
      {"+7", 7},
      {"12abc", 12},
      {"007", 7},
      {"4294967295", UINT_MAX},
      {"2147483648", 2147483648U},
      {"0x10", 0},
      {"1.9", 1},
  };
  for (const auto& row : cases) {
    EXPECT_EQ(toUInt(row.text), row.value) << row.text;
  }
}

TEST(ToUInt, wrapsNegativeNumbers) {
  EXPECT_EQ(toUInt("-1"), 4294967295U);
  EXPECT_EQ(toUInt(" -2x"), 4294967294U);
  EXPECT_EQ(toUInt("-4294967295"), 1U);
  EXPECT_EQ(toUInt("-0"), 0U);
}

TEST(ToUInt, answersZeroForWhatIsNoNumber) {
  for (const char* text : {"", "abc", "   ", "-", "+", "--1", "x1"}) {
    EXPECT_EQ(toUInt(text), 0U) << text;
  }
}

TEST(ToUInt, answersZeroForWhatThirtyTwoBitsCannotHold) {
  for (const char* text : {"4294967296", "-4294967296", "18446744073709551616", "18446744073709551617",
                           "99999999999999999999999999", "-99999999999999999999999999"}) {
    EXPECT_EQ(toUInt(text), 0U) << text;
  }
}

TEST(NumberReaders, agreeWithAPlainReaderOnEveryShortText) {
  for (const std::string& text : allTexts(" -+05a", 5)) {
    ASSERT_EQ(toInt(text), plainInt(text)) << '"' << text << '"';
    ASSERT_EQ(toUInt(text), plainUInt(text)) << '"' << text << '"';
  }
}

TEST(NumberReaders, agreeWithAPlainReaderAroundTheLimits) {
  for (const std::int64_t limit : {std::int64_t{INT_MAX}, std::int64_t{UINT_MAX}, std::int64_t{INT_MAX} * 4 + 3}) {
    for (std::int64_t value = limit - 20; value <= limit + 20; ++value) {
      for (const char* sign : {"", "-", "+", " ", " -"}) {
        const std::string text = sign + std::to_string(value);
        ASSERT_EQ(toInt(text), plainInt(text)) << text;
        ASSERT_EQ(toUInt(text), plainUInt(text)) << text;
      }
    }
  }
}

TEST(NumberReaders, ignoreTheGlobalLocale) {
  const OddGlobalLocale odd;
  EXPECT_EQ(toInt("1.234"), 1);
  EXPECT_EQ(toUInt("1.234"), 1U);
  EXPECT_EQ(toInt("1234567"), 1234567);
}

TEST(NumberReaders, readBackWhatToStringWrites) {
  for (const int value : {0, 1, -1, 9, 10, -10, 65535, INT_MAX, INT_MIN, INT_MIN + 1}) {
    EXPECT_EQ(toInt(toString(value)), value);
  }
  for (const unsigned int value : {0U, 1U, 9U, 65536U, 2147483648U, UINT_MAX}) {
    EXPECT_EQ(toUInt(toString(value)), value);
  }
}

TEST(Trim, goesAsFarAsItsOrderAllows) {
  const struct {
    const char* label;
    const char* text;
    const char* left;
  } cases[] = {
      {"nothing", "", ""},
      {"nothing to remove", "word", "word"},
      {"CR LF at the end keeps the CR", "word\r\n", "word\r"},
      {"LF CR at the end goes", "word\n\r", "word"},
      {"both ends mixed", "\r\n word \t\r\n", "word \t\r"},
      {"a TAB inside a blank survives", " \tx\t ", "\tx\t"},
      {"blanks", "  x  ", "x"},
      {"in the order of removal", "\t x \n", "x"},
      {"TAB, blank, TAB", "\t \t", ""},
      {"blank, TAB, blank", " \t ", "\t"},
      {"one of each", "\r\n\t ", ""},
      {"one of each, other way round", " \t\n\r", ""},
      {"one of each, blank behind", "\t\n\r ", "\n\r"},
      {"inside stays", "a \t\r\n b", "a \t\r\n b"},
      {"vertical tab and form feed stay", "\v x \f", "\v x \f"},
      {"runs", "\r\r\n\n\t\t  x\t\t\n\n\r\r", "x"},
  };
  for (const auto& row : cases) {
    EXPECT_EQ(trimmed(row.text), row.left) << row.label;
  }
}

TEST(Trim, agreesWithAPlainTrimmerOnEveryShortText) {
  for (const std::string& text : allTexts("\r\n\t x", 7)) {
    ASSERT_EQ(trimmed(text), plainlyTrimmed(text)) << testing::PrintToString(text);
  }
}

TEST(Trim, keepsNuls) {
  EXPECT_EQ(trimmed(std::string(" \0 ", 3)), std::string("\0", 1));
}
