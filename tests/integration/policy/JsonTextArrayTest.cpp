#include "policy/JsonTextArray.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "policy/TextList.h"

namespace {

using testing::ElementsAreArray;
using Texts = std::vector<std::string>;

TEST(JsonTextArray, handsOnEachText) {
  const struct {
    std::string array;
    Texts texts;
  } kRows[] = {
      {"[]", {}},
      {R"([""])", {""}},
      {R"(["a","b"])", {"a", "b"}},
      {"[\"a\", \n \"b\"]", {"a", "b"}},
      {R"(["[\"a\", \"b\"]","]"])", {R"(["a", "b"])", "]"}},
      {R"(["\\","\\\"","\/","a\\"])", {"\\", "\\\"", "/", "a\\"}},
      {R"(["\b\f\n\r\t","\u0000x","\u007F\u000a"])", {"\b\f\n\r\t", std::string("\0x", 2), "\x7f\n"}},
      {"[\"\u00fc\U0001f4e7\",\"\xff\\\"\"]", {"\u00fc\U0001f4e7", "\xff\""}},
  };
  for (const auto& row : kRows) {
    Texts texts;
    EXPECT_TRUE(eachTextIn(row.array, [&](std::string_view text) { texts.emplace_back(text); })) << row.array;
    EXPECT_THAT(texts, ElementsAreArray(row.texts)) << row.array;
  }
}

TEST(JsonTextArray, isRefusedWhenItIsCutOrHasAnEscapeBeyondAscii) {
  const std::string whole = R"(["a\"","\\b","c\u0001"])";
  for (std::size_t size = 0; size != whole.size(); ++size) {
    EXPECT_FALSE(eachTextIn(whole.substr(0, size), [](std::string_view) {})) << size;
  }
  for (const char* array :
       {R"(["\u0080"])", R"(["\ud83d\udce7"])", R"(["\u00"])", R"(["\u00g1"])", R"(["\u"])", R"(["\)"}) {
    EXPECT_FALSE(eachTextIn(array, [](std::string_view) {})) << array;
  }
}

TEST(TextList, keepsTextsWithAZeroBehindEach) {
  TextList list;
  EXPECT_TRUE(list.empty());
  const Texts texts = {"", "a", std::string("b\0c", 3), "", std::string(100, 'x')};
  for (int round = 0; round != 1000; ++round) {
    for (const std::string& text : texts) {
      list.add(text);
    }
  }
  ASSERT_EQ(list.size(), 5000u);
  for (std::size_t place = 0; place != list.size(); ++place) {
    ASSERT_EQ(list[place], texts[place % texts.size()]);
    ASSERT_EQ(list[place].data()[list[place].size()], '\0');
  }
  EXPECT_THAT(Texts(list.begin(), list.end()), testing::Each(testing::AnyOfArray(texts)));
  EXPECT_THAT(TextList({"a", "b"}), testing::ElementsAre("a", "b"));
}

}  // namespace
