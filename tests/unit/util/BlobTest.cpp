// Blob records, read and written.
#include "Blob.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

using Fields = Blob::Fields;

std::string written(const Fields& fields) {
  std::string text;
  Blob::writeBlob(text, fields);
  return text;
}

struct ReadResult {
  Fields fields;
  std::size_t cursor;  // offset in the text
};

ReadResult read(const std::string& text, Fields fields = {}) {
  const char* cursor = text.c_str();
  EXPECT_TRUE(Blob::readBlob(cursor, fields));
  return {std::move(fields), static_cast<std::size_t>(cursor - text.c_str())};
}

constexpr std::size_t kUnmoved = 0;

// What the format can hold: see the head of Blob.h.
std::string randomKey(std::mt19937& random) {
  const std::string alphabet = "ab \t\r;";
  std::string key;
  for (auto left = random() % 5; left > 0; --left) {
    key += alphabet[random() % alphabet.size()];
  }
  key.erase(0, key.find_first_not_of("\r\n\t "));
  return key;
}

std::string randomValue(std::mt19937& random) {
  const std::string alphabet = "ab \t\r=;\xFF";
  std::string value;
  for (auto left = random() % 8; left > 0; --left) {
    value += alphabet[random() % alphabet.size()];
  }
  value.erase(value.find_last_not_of("\r\n\t ") + 1);
  return value;
}

Fields randomFields(std::mt19937& random) {
  Fields fields;
  for (auto left = 1 + random() % 6; left > 0; --left) {
    fields[randomKey(random)] = randomValue(random);
  }
  return fields;
}

// Fills a map with one entry and reads a variable from it.
template <typename Variable>
std::pair<bool, Variable> bound(const std::string& text, Variable before) {
  Fields fields = {{"key", text}};
  const bool result = Blob::bindBlobField(fields, "key", before, false);
  EXPECT_EQ(fields, (Fields{{"key", text}}));
  return {result, before};
}

template <typename Variable>
std::string boundText(Variable variable) {
  Fields fields = {{"key", "old"}, {"other", "kept"}};
  EXPECT_TRUE(Blob::bindBlobField(fields, "key", variable, true));
  EXPECT_EQ(fields.size(), 2U);
  EXPECT_EQ(fields["other"], "kept");
  return fields["key"];
}

template <typename Variable>
void expectMissingKeyLeaves(Variable before) {
  Fields fields = {{"other", "1"}};
  Variable variable = before;
  EXPECT_FALSE(Blob::bindBlobField(fields, "key", variable, false));
  EXPECT_EQ(variable, before);
  EXPECT_EQ(fields, (Fields{{"other", "1"}}));
}

// Reads into a variable that nobody has set: a sanitizer sees whoever looks at it before.
template <typename Variable>
void expectReadIntoUnset(const std::string& text, Variable expected) {
  Variable variable;
  std::memset(&variable, 0xBE, sizeof variable);
  unsigned char unset[sizeof variable];
  std::memset(unset, 0xBE, sizeof unset);
  Fields fields = {{"key", text}};
  EXPECT_FALSE(Blob::bindBlobField(fields, "missing", variable, false));
  EXPECT_EQ(std::memcmp(&variable, unset, sizeof unset), 0);
  EXPECT_TRUE(Blob::bindBlobField(fields, "key", variable, false));
  EXPECT_EQ(variable, expected);
}

template <typename Variable>
void expectInserted(Variable variable, const std::string& text) {
  Fields fields;
  EXPECT_TRUE(Blob::bindBlobField(fields, "key", variable, true));
  EXPECT_EQ(fields, (Fields{{"key", text}}));
}

}  // namespace

TEST(WriteBlob, appendsFieldsInKeyOrderAndAnEmptyLine) {
  std::string text = "before";
  Blob::writeBlob(text, {{"b", "2"}, {"a", "1"}});
  EXPECT_EQ(text, "beforea=1\r\nb=2\r\n\r\n");
}

TEST(WriteBlob, writesAnEmptyMapAsOneLineEnd) {
  EXPECT_EQ(written({}), "\r\n");
}

TEST(WriteBlob, escapesNothing) {
  EXPECT_EQ(written({{"k=", "a=b\nc"}, {"", ""}}), "=\r\nk==a=b\nc\r\n\r\n");
}

TEST(WriteBlob, ordersKeysByTheirBytes) {
  EXPECT_EQ(written({{"a", ""}, {"B", ""}, {"\xC3\xA4", ""}, {"aa", ""}}), "B=\r\na=\r\naa=\r\n\xC3\xA4=\r\n\r\n");
}

TEST(ReadBlob, readsARecordAndStopsBehindItsEmptyLine) {
  const std::string first = written({{"b", "2"}, {"a", "1"}});
  const std::string text = first + written({{"c", "3"}});
  const char* cursor = text.c_str();
  Fields fields;
  EXPECT_TRUE(Blob::readBlob(cursor, fields));
  EXPECT_EQ(fields, (Fields{{"a", "1"}, {"b", "2"}}));
  EXPECT_EQ(cursor, text.c_str() + first.size());

  Fields second;
  EXPECT_TRUE(Blob::readBlob(cursor, second));
  EXPECT_EQ(second, (Fields{{"c", "3"}}));
  EXPECT_EQ(cursor, text.c_str() + text.size());
}

TEST(ReadBlob, readsEachKindOfLine) {
  const struct {
    const char* label;
    std::string text;
    Fields fields;
    std::size_t cursor;
  } cases[] = {
      {"nothing", "", {}, kUnmoved},
      {"no line end", "a=1", {}, kUnmoved},
      {"only what is skipped", "\r\n \t\r\n", {}, kUnmoved},
      {"skipped, then no line end", "\r\n  a=1", {}, kUnmoved},
      {"last line unfinished", "a=1\r\nb=2", {{"a", "1"}}, kUnmoved},
      {"no empty line", "a=1\r\n", {{"a", "1"}}, kUnmoved},
      {"skipped first", "\r\n\r\n \t a=1\r\n\r\nrest", {{"a", "1"}}, 14},
      {"LF alone", "a=1\nb=2\n\nrest", {{"a", "1"}, {"b", "2"}}, 9},
      {"empty line of LF after CR LF", "a=1\r\n\nrest", {{"a", "1"}}, 6},
      {"a line of blanks ends the record", "a=1\r\n \t \r\nb=2\r\n\r\n", {{"a", "1"}, {"\t", "\t"}, {"b", "2"}}, 17},
      {"a line of one kind of blank ends it", "a=1\r\n   \r\nrest\r\n", {{"a", "1"}}, 10},
      {"a line of TABs ends it", "a=1\n\t\t\nrest\n", {{"a", "1"}}, 7},
      {"a line of CRs ends it", "a=1\n\r\r\r\nrest\n", {{"a", "1"}}, 8},
      {"no assignment", "word\r\n\r\n", {{"word", "word"}}, 8},
      {"no assignment, trimmed", "a=1\n  some words \r\n\n", {{"a", "1"}, {"some words", "some words"}}, 20},
      {"first of several =", "a=1=2==\r\n\r\n", {{"a", "1=2=="}}, 11},
      {"no value", "a=\r\n\r\n", {{"a", ""}}, 6},
      {"no key", "=v\r\n\r\n", {{"", "v"}}, 6},
      {"only =", "=\r\n\r\n", {{"", ""}}, 5},
      {"blanks around =", "  a = 1 \r\n\r\n", {{"a ", " 1"}}, 12},
      {"later line wins", "a=1\r\na=2\r\n\r\n", {{"a", "2"}}, 12},
      {"CR inside", "a\rb=c\rd\r\n\r\n", {{"a\rb", "c\rd"}}, 11},
      {"CR before CR LF is trimmed", "a=1\r\r\n\r\n", {{"a", "1"}}, 8},
      {"first field after blanks in its line", "a=1\n \tb=2\n\n", {{"a", "1"}, {"\tb", "2"}}, 11},
      {"bytes above 127", "\xC3\xA4=\xFF\n\n", {{"\xC3\xA4", "\xFF"}}, 6},
  };
  for (const auto& row : cases) {
    const ReadResult result = read(row.text);
    EXPECT_EQ(result.fields, row.fields) << row.label;
    EXPECT_EQ(result.cursor, row.cursor) << row.label;
  }
}

TEST(ReadBlob, addsToTheMap) {
  const ReadResult result = read("a=new\r\n\r\n", {{"a", "old"}, {"b", "kept"}});
  EXPECT_EQ(result.fields, (Fields{{"a", "new"}, {"b", "kept"}}));
}

TEST(ReadBlob, comesBackForATailThatWasUnfinished) {
  std::string text = "a=1\r\nb=";
  EXPECT_EQ(read(text).cursor, kUnmoved);
  text += "2\r\n\r\n";
  const ReadResult result = read(text);
  EXPECT_EQ(result.fields, (Fields{{"a", "1"}, {"b", "2"}}));
  EXPECT_EQ(result.cursor, text.size());
}

TEST(ReadBlob, runsPastAnEmptyRecordIntoTheNext) {
  const std::string text = written({}) + written({{"a", "1"}});
  const ReadResult result = read(text);
  EXPECT_EQ(result.fields, (Fields{{"a", "1"}}));
  EXPECT_EQ(result.cursor, text.size());
}

TEST(Blob, comesBackAsItWasWritten) {
  std::mt19937 random(20240607);
  for (int round = 0; round < 50000; ++round) {
    const Fields fields = randomFields(random);
    const std::string text = written(fields) + "next=record\r\n\r\n";
    const ReadResult result = read(text);
    ASSERT_EQ(result.fields, fields) << testing::PrintToString(text);
    ASSERT_EQ(text.substr(result.cursor), "next=record\r\n\r\n");
  }
}

TEST(Blob, comesBackForEveryByteThatItsPlaceAllows) {
  for (int byte = 1; byte < 256; ++byte) {
    const char character = static_cast<char>(byte);
    const bool blank = std::string("\r\t ").find(character) != std::string::npos;
    if (character == '\n') {
      continue;
    }
    std::vector<Fields> all = {{{"k", std::string("x") + character + "y"}}, {{"k", std::string(1, character) + "y"}}};
    if (!blank) {
      all.push_back({{"k", std::string("x") + character}});
    }
    if (character != '=') {
      all.push_back({{std::string("x") + character + "y", "v"}});
      all.push_back({{std::string("x") + character, "v"}});
    }
    if (character != '=' && !blank) {
      all.push_back({{character + std::string("x"), "v"}});
    }
    for (const Fields& fields : all) {
      ASSERT_EQ(read(written(fields)).fields, fields) << "byte " << byte;
    }
  }
}

TEST(Blob, longFieldsComeBack) {
  const Fields fields = {{std::string(1000000, 'k'), std::string(3000000, '=')}};
  EXPECT_EQ(read(written(fields)).fields, fields);
}

TEST(BindBlobField, putsAVariableInTheMap) {
  EXPECT_EQ(boundText(std::string("te=xt")), "te=xt");
  EXPECT_EQ(boundText(4294967295U), "4294967295");
  EXPECT_EQ(boundText(-1), "-1");
  EXPECT_EQ(boundText(INT_MIN), "-2147483648");
  EXPECT_EQ(boundText(true), "1");
  EXPECT_EQ(boundText(false), "0");
  EXPECT_EQ(boundText(static_cast<unsigned short>(65535)), "65535");
  EXPECT_EQ(boundText(static_cast<short>(-32768)), "-32768");
}

TEST(BindBlobField, insertsAMissingField) {
  expectInserted(std::string("text"), "text");
  expectInserted(7U, "7");
  expectInserted(-7, "-7");
  expectInserted(true, "1");
  expectInserted(static_cast<unsigned short>(7), "7");
  expectInserted(static_cast<short>(-7), "-7");
}

TEST(BindBlobField, leavesTheVariableWhenThereIsNoField) {
  expectMissingKeyLeaves(std::string("before"));
  expectMissingKeyLeaves(5U);
  expectMissingKeyLeaves(-5);
  expectMissingKeyLeaves(true);
  expectMissingKeyLeaves(false);
  expectMissingKeyLeaves(static_cast<unsigned short>(5));
  expectMissingKeyLeaves(static_cast<short>(-5));
}

TEST(BindBlobField, readsEachType) {
  EXPECT_EQ(bound("any text", std::string("before")), std::make_pair(true, std::string("any text")));
  EXPECT_EQ(bound("4294967295", 5U), std::make_pair(true, 4294967295U));
  EXPECT_EQ(bound("-1", 5U), std::make_pair(true, 4294967295U));
  EXPECT_EQ(bound("-2147483648", 5), std::make_pair(true, INT_MIN));
  EXPECT_EQ(bound("0", true), std::make_pair(true, false));
  EXPECT_EQ(bound("1", false), std::make_pair(true, true));
  EXPECT_EQ(bound("2", false), std::make_pair(true, true));
  EXPECT_EQ(bound("256", false), std::make_pair(true, true));
  EXPECT_EQ(bound("-1", false), std::make_pair(true, true));
}

TEST(BindBlobField, readsIntoVariablesThatNobodyHasSet) {
  expectReadIntoUnset("7", 7U);
  expectReadIntoUnset("-7", -7);
  expectReadIntoUnset("1", true);
  expectReadIntoUnset("0", false);
  expectReadIntoUnset("7", static_cast<unsigned short>(7));
  expectReadIntoUnset("-7", static_cast<short>(-7));
}

TEST(BindBlobField, readsTextThatIsNoNumberAsTheDefault) {
  EXPECT_EQ(bound("letters", 5), std::make_pair(true, -1));
  EXPECT_EQ(bound("", 5), std::make_pair(true, -1));
  EXPECT_EQ(bound("letters", 5U), std::make_pair(true, 0U));
  EXPECT_EQ(bound("letters", true), std::make_pair(true, false));
  EXPECT_EQ(bound("letters", static_cast<unsigned short>(5)), std::make_pair(true, static_cast<unsigned short>(0)));
  EXPECT_EQ(bound("letters", static_cast<short>(5)), std::make_pair(true, static_cast<short>(-1)));
  EXPECT_EQ(bound("2147483648", 5), std::make_pair(true, -1));
  EXPECT_EQ(bound("4294967296", 5U), std::make_pair(true, 0U));
}

TEST(BindBlobField, cutsShortTypesToSixteenBits) {
  EXPECT_EQ(bound("65537", static_cast<unsigned short>(5)).second, 1);
  EXPECT_EQ(bound("-1", static_cast<unsigned short>(5)).second, 65535);
  EXPECT_EQ(bound("65537", static_cast<short>(5)).second, 1);
  EXPECT_EQ(bound("65535", static_cast<short>(5)).second, -1);
  EXPECT_EQ(bound("32768", static_cast<short>(5)).second, -32768);
  EXPECT_EQ(bound("-32769", static_cast<short>(5)).second, 32767);
}

TEST(BindBlobField, servesBothDirectionsOfARecord) {
  std::string text = "text";
  unsigned int number = 4294967290U;
  int negative = -5;
  bool yes = true;
  unsigned short port = 65000;
  short offset = -300;
  const auto bindAll = [&](Fields& fields, bool intoFields) {
    return Blob::bindBlobField(fields, "text", text, intoFields) &&
           Blob::bindBlobField(fields, "number", number, intoFields) &&
           Blob::bindBlobField(fields, "negative", negative, intoFields) &&
           Blob::bindBlobField(fields, "yes", yes, intoFields) && Blob::bindBlobField(fields, "port", port, intoFields) &&
           Blob::bindBlobField(fields, "offset", offset, intoFields);
  };
  Fields fields;
  EXPECT_TRUE(bindAll(fields, true));
  const std::string record = written(fields);
  text.clear();
  number = 0;
  negative = 0;
  yes = false;
  port = 0;
  offset = 0;
  Fields again = read(record).fields;
  EXPECT_TRUE(bindAll(again, false));
  EXPECT_EQ(text, "text");
  EXPECT_EQ(number, 4294967290U);
  EXPECT_EQ(negative, -5);
  EXPECT_TRUE(yes);
  EXPECT_EQ(port, 65000);
  EXPECT_EQ(offset, -300);
}
