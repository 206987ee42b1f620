#include "milter/HeaderText.h"

#include <gtest/gtest.h>

#include <string>

namespace {

struct FromCase {
  const char* value;
  const char* address;  // null: none
};

constexpr FromCase kFromCases[] = {
    {"a@b.test", "a@b.test"},
    {" Name <a@b.test>", "a@b.test"},
    {"\"b@evil.test\" <a@b.test>", "a@b.test"},
    {"\"quo\\\"ted, <x@y.test>\" <a@b.test>", "a@b.test"},
    {"a@b.test (Name <c@d.test> (nested))", "a@b.test"},
    {"(first) a@b.test", "a@b.test"},
    {"Name\r\n\t<a@b.test>", "a@b.test"},
    {"one@b.test, two@b.test", "one@b.test"},
    {"Name, one@b.test", "one@b.test"},
    {"Friends: one@b.test, two@b.test;", "one@b.test"},
    {"\"a b\"@c.test", "\"a b\"@c.test"},
    {"<\"a>b\"@c.test>", "\"a>b\"@c.test"},
    {"<@relay.test:a@b.test>", "@relay.test:a@b.test"},
    {"Undisclosed:;", nullptr},
    {"Name", nullptr},
    {"<>", nullptr},
    {"", nullptr},
    {"(never closed", nullptr},
    {"\"never closed", nullptr},
    // Blanks that stand where an address may have them, and phrases that stand where none may.
    {"a@ b.test", "a@b.test"},
    {"a . x @ b . test", "a.x@b.test"},
    {"a@(comment) b.test", "a@b.test"},
    {"< a . x @\r\n b.test >", "a.x@b.test"},
    {"\"a b\" @ c.test", "\"a b\"@c.test"},
    {"Name [x] a@b.test", "a@b.test"},
    {"a@b.test Name", "a@b.test"},
    {"<Name a@b.test>", "a@b.test"},
    {"Name < Other <a@b.test>>", "a@b.test"},
    {"<@relay.test, @other.test: a@b.test>", "@relay.test,@other.test:a@b.test"},
    {"a@[IPv6:2001:db8::1]", "a@[IPv6:2001:db8::1]"},
    // Brackets without an address in them, and what is never closed.
    {"<Boss> <a@b.test>", "a@b.test"},
    {"<>, <a@b.test>", "a@b.test"},
    {"a@b.test <Boss>", "a@b.test"},
    {"<Boss>, a@b.test", "a@b.test"},
    {"\\\"Name <a@b.test>", "a@b.test"},
    {"\"Name <a@b.test>", "a@b.test"},
    {"Name (x <a@b.test>", "a@b.test"},
    {"\\(Name <a@b.test>", "a@b.test"},
    {"<a@b.test", "a@b.test"},
    {"a\\@x@b.test", "a\\@x@b.test"},
};

TEST(AddressOfFrom, isTheFirstOfTheField) {
  for (const FromCase& row : kFromCases) {
    EXPECT_EQ(addressOfFrom(row.value).value_or("none"), row.address != nullptr ? row.address : "none") << row.value;
  }
}

TEST(TaggedSubject, hasTheTagOnce) {
  EXPECT_EQ(taggedSubject("[SPAM]", "Hello"), "[SPAM] Hello");
  EXPECT_EQ(taggedSubject("[SPAM]", "  Hello"), "[SPAM] Hello");
  EXPECT_EQ(taggedSubject("[SPAM]", ""), "[SPAM] ");
  EXPECT_EQ(taggedSubject("[SPAM]", "[SPAM] Hello"), "[SPAM] Hello");
  EXPECT_EQ(taggedSubject(" [SPAM]", taggedSubject(" [SPAM]", "Hello")), " [SPAM] Hello");
  EXPECT_EQ(taggedSubject("[SPAM]", taggedSubject("[SPAM]", "=?UTF-8?Q?H=C3=A4?=")), "[SPAM] =?UTF-8?Q?H=C3=A4?=");
}

TEST(TaggedSubject, encodesATagThatIsNotAscii) {
  // echo -n 'Prüfen ' | base64
  const std::string tagged = taggedSubject(
      "Pr\xC3\xBC"
      "fen",
      "Hello");
  EXPECT_EQ(tagged, "=?UTF-8?B?UHLDvGZlbiA=?= Hello");
  EXPECT_EQ(taggedSubject("Pr\xC3\xBC"
                          "fen",
                          tagged),
            tagged);
}

// A line of a message has 998 characters at most (RFC 5322, 2.1.1).
TEST(TaggedSubject, dividesLongTagsBetweenCharacters) {
  std::string tag;
  for (int i = 0; i < 60; ++i) {
    tag += "\xC3\xBC";
  }
  const std::string tagged = taggedSubject(tag, "");
  for (std::size_t begin = 0; begin < tagged.size();) {
    const std::size_t end = std::min(tagged.find_first_of(" \n", begin), tagged.size());
    EXPECT_LE(end - begin, 75u);
    begin = end + 1;
  }
  // Of 45 bytes one is half a character, so a word has 44: 60 characters of base64 without padding at a character's end.
  EXPECT_NE(tagged.find("?=\n =?UTF-8?B?w7zDv"), std::string::npos) << tagged;
}

TEST(HeaderText, isEncodedWhereItIsNotAscii) {
  EXPECT_EQ(asHeaderText("plain; text"), "plain; text");
  EXPECT_EQ(asHeaderText("\u00FC"), "=?UTF-8?B?w7w=?=");  // echo -n 'ü' | base64
}

TEST(ReplyText, isOneShortLineOfAscii) {
  EXPECT_EQ(asReplyText("no\r\nmail \xC3\xBC"), "no??mail ??");
  EXPECT_LT(asReplyText(std::string(5000, 'x')).size(), 512u);
}

}  // namespace
