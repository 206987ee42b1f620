// Statement files are filled in, and refused rather than cut or opened to injection.
#include "KxSqlLoader.h"

#include <gmock/gmock.h>

#include <climits>
#include <vector>

#include "ZaroRuntime/LastFailure.h"
#include "ZaroRuntime/StatementFile.h"
#include "support/TemporaryDirectory.h"

namespace {

using testing::HasSubstr;

class KxSqlLoaderTest : public testing::Test {
 protected:
  void file(const std::string& text) { m_directory.write("x.sql", text); }

  // The statement, or "thrown: " and the text.
  template <typename... Arguments>
  std::string load(int size, Arguments... arguments) {
    std::vector<char> buffer(static_cast<std::size_t>(size) + 1, '#');
    buffer[0] = '\0';
    try {
      KxSqlLoader(m_directory.path().c_str()).loadSQL(buffer.data(), size, "x.sql", arguments...);
      EXPECT_EQ(buffer[static_cast<std::size_t>(size)], '#') << "written behind the end";
      return buffer.data();
    } catch (const char* thrown) {
      EXPECT_STREQ(buffer.data(), "") << "a refused statement leaves nothing in the buffer";
      EXPECT_EQ(zaroruntime::lastFailure(), thrown);
      return std::string("thrown: ") + thrown;
    }
  }

  zarotest::TemporaryDirectory m_directory;
};

TEST_F(KxSqlLoaderTest, argumentsAreFilledInInOrder) {
  file("SELECT %u, %d, '%s', '%s%s' WHERE a LIKE '%%x'");
  EXPECT_EQ(load(256, 4294967295u, INT_MIN, "a", "b", "c"),
            "SELECT 4294967295, -2147483648, 'a', 'bc' WHERE a LIKE '%x'");
}

TEST_F(KxSqlLoaderTest, trailingLineEndsAndSemicolonsAreTrimmed) {
  file("COMMIT ;\n;\r\n");
  EXPECT_EQ(load(256), "COMMIT");
}

TEST_F(KxSqlLoaderTest, statementMustFitWithItsTerminator) {
  file("SELECT '%s'");
  EXPECT_EQ(load(12, "ab"), "SELECT 'ab'");
  EXPECT_THAT(load(11, "ab"), HasSubstr("x.sql: the statement takes 12 bytes and its buffer has 11"));
  EXPECT_THAT(load(1, "ab"), HasSubstr("takes 12 bytes"));
}

TEST_F(KxSqlLoaderTest, undoubledQuoteIsRefused) {
  file("SELECT '%s'");
  EXPECT_EQ(load(256, "o''brien"), "SELECT 'o''brien'");
  EXPECT_EQ(load(256, "''"), "SELECT ''''");
  EXPECT_EQ(load(256, "''''"), "SELECT ''''''");
  for (const char* text : {"'", "o'brien", "'''", "a'||(SELECT 1)||'b", "''a'", "a'"}) {
    EXPECT_THAT(load(256, text), HasSubstr("argument 1 holds a quote that is not doubled")) << text;
  }
}

TEST_F(KxSqlLoaderTest, nullTextIsRefused) {
  file("SELECT %u, '%s'");
  EXPECT_THAT(load(256, 1u, static_cast<const char*>(nullptr)), HasSubstr("argument 2 is a null text"));
}

TEST_F(KxSqlLoaderTest, argumentsMayHoldPercentSignsAndAnyByte) {
  file("SELECT '%s'");
  EXPECT_EQ(load(256, "100%s %n \x01\n\\ äé漢 ;--"), "SELECT '100%s %n \x01\n\\ äé漢 ;--'");
}

struct BrokenFile {
  const char* label;
  const char* text;
  const char* why;
};

const BrokenFile kBrokenFiles[] = {
    {"empty", "", "there is no statement"},
    {"only an end", " ;\n", "there is no statement"},
    {"unknown conversion", "SELECT %f", "a percent sign is not followed by"},
    {"width", "SELECT %5d", "a percent sign is not followed by"},
    {"length", "SELECT %ld", "a percent sign is not followed by"},
    {"conversion of writing", "SELECT '%n'", "a percent sign is not followed by"},
    {"lone percent sign", "SELECT '%'", "a percent sign is not followed by"},
    {"percent sign at the end", "SELECT %", "a percent sign is not followed by"},
    {"text outside a literal", "SELECT %s", "%s stands outside a plain literal"},
    {"text in a quoted name", "SELECT 1 AS \"%s\"", "%s stands outside a plain literal"},
    {"text in an escape literal", "SELECT E'%s'", "%s stands outside a plain literal"},
    {"text in a dollar literal", "SELECT $$%s$$", "%s stands outside a plain literal"},
    {"number behind a minus sign", "SELECT 2 -%d", "a number stands where it would"},
    {"number before a dollar literal", "SELECT %u$$, '%s', a$$", "a number stands where it would"},
    {"number before an escape literal", "SELECT %uE'%s'", "a number stands where it would"},
    {"number in the tag of a dollar literal", "SELECT $a%u$, '%s'", "a number stands where it would"},
    {"two statements", "SELECT 1; SELECT 2", "more than one statement"},
    {"comment", "SELECT 1 -- ?", "a statement must not hold comments"},
    {"open literal", "SELECT 'a", "a literal does not end"},
};

TEST_F(KxSqlLoaderTest, brokenFilesAreRefusedByName) {
  for (const BrokenFile& test : kBrokenFiles) {
    file(test.text);
    const std::string answer = load(256, "a");
    EXPECT_THAT(answer, HasSubstr("x.sql: ")) << test.label;
    EXPECT_THAT(answer, HasSubstr(test.why)) << test.label;
  }
}

TEST_F(KxSqlLoaderTest, nulByteInAFileIsRefused) {
  file(std::string("SELECT 1\0 + 1", 13));
  EXPECT_THAT(load(256), HasSubstr("there is a NUL byte"));
}

TEST_F(KxSqlLoaderTest, missingFileIsNamed) {
  EXPECT_THAT(load(256), HasSubstr(m_directory.path("x.sql") + ": cannot open: No such file or directory"));
}

TEST_F(KxSqlLoaderTest, directoryInPlaceOfAFileIsRefused) {
  m_directory.write("x.sql/y", "");
  EXPECT_THAT(load(256), HasSubstr("x.sql: not a regular file"));
}

TEST_F(KxSqlLoaderTest, pathsAreNotFileNames) {
  char buffer[64];
  KxSqlLoader loader(m_directory.path().c_str());
  EXPECT_THROW(loader.loadSQL(buffer, 64, "../x.sql"), const char*);
  EXPECT_THROW(loader.loadSQL(nullptr, 64, "x.sql"), const char*);
  EXPECT_THROW(loader.loadSQL(buffer, 0, "x.sql"), const char*);
  EXPECT_THROW(loader.loadSQL(buffer, 64, nullptr), const char*);
  EXPECT_THROW(KxSqlLoader(nullptr).loadSQL(buffer, 64, "x.sql"), const char*);
}

TEST_F(KxSqlLoaderTest, conversionsOfAFileAreTold) {
  const std::string path = m_directory.write("y.sql", "SELECT %u WHERE a='%s' AND b LIKE '%%' AND c=%d;");
  EXPECT_EQ(zaroruntime::statementConversions(path), "usd");
}

}  // namespace
