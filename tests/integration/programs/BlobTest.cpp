// zaroctl blob: records of fields are shown and written.
#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "programs/Program.h"
#include "support/TemporaryDirectory.h"

namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using zarotest::linesOf;
using zarotest::ProgramResult;
using zarotest::ProgramRun;
using zarotest::zaroctl;

ProgramResult filter(const std::vector<std::string>& arguments, const std::string& input) {
  ProgramRun run;
  run.input = input;
  return zaroctl(arguments, run);
}

TEST(BlobRead, showsTheFieldsOfEveryRecord) {
  const ProgramResult result = filter({"blob", "read"}, "b=2\r\na=x=y\r\n\r\n\r\n  c\xc3\xa4 = 3\r\n\r\n");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(linesOf(result.out), ElementsAre("1\ta\tx=y", "1\tb\t2", "2\tc\xc3\xa4 \t 3"));
}

TEST(BlobRead, readsAFile) {
  const zarotest::TemporaryDirectory directory;
  const std::string file = directory.write("stored", "a=1\r\n\r\n");
  EXPECT_EQ(zaroctl({"blob", "read", file}).out, "1\ta\t1\n");
  EXPECT_EQ(filter({"blob", "read", "-"}, "a=1\r\n\r\n").out, "1\ta\t1\n");
}

TEST(BlobRead, isAnArrayOfObjectsInJson) {
  EXPECT_EQ(json::parse(filter({"blob", "read", "--json"}, "a=\"\r\n\r\n").out),
            json::parse(R"([{"record": 1, "key": "a", "value": "\""}])"));
}

TEST(BlobRead, jsonHasNoControlCharacterOfAStoredText) {
  const std::string stored = "\x01 \x7f \xc2\x80 \xc2\x9b \xc2\x9f \xc2\xa0 \xc3\xbc \xe2\x82\xac";
  const std::string out = filter({"blob", "read", "--json"}, "a=" + stored + "\r\n\r\n").out;
  EXPECT_THAT(out, HasSubstr("\"\\u0001 \\u007f \\u0080 \\u009b \\u009f \xc2\xa0 \xc3\xbc \xe2\x82\xac\""));
  EXPECT_EQ(json::parse(out).at(0).at("value"), stored);
}

TEST(BlobRead, jsonHasReplacementsForBytesThatAreNotUtf8) {
  const std::string out = filter({"blob", "read", "--json"}, "a=\xff\x9b\r\n\r\n").out;
  EXPECT_EQ(json::parse(out).at(0).at("value"), "\xef\xbf\xbd\xef\xbf\xbd");
}

TEST(BlobRead, escapesWhatATerminalWouldObey) {
  EXPECT_EQ(filter({"blob", "read"}, "a\tb=\x1b[31m\\\xff\n\n").out, "1\ta\\tb\t\\x1b[31m\\\\\\xff\n");
}

TEST(BlobRead, tellsOfAnUnfinishedRecord) {
  const ProgramResult result = filter({"blob", "read"}, "a=1\r\n\r\nb=2\r\nc=");
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(linesOf(result.out), ElementsAre("1\ta\t1", "2\tb\t2"));
  EXPECT_EQ(result.err, "zaroctl: record 2 is unfinished: no empty line ends it\n");
}

TEST(BlobRead, tellsOfANul) {
  const ProgramResult result = filter({"blob", "read"}, std::string("a=1\n\n\0b=2\n\n", 11));
  EXPECT_EQ(result.out, "1\ta\t1\n");
  EXPECT_EQ(result.err, "zaroctl: standard input: a NUL ends the text; nothing behind it was read\n");
}

TEST(BlobRead, findsNothingInNothing) {
  for (const char* nothing : {"", "\r\n", " \t\r\n\r\n"}) {
    const ProgramResult result = filter({"blob", "read"}, nothing);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
  }
}

TEST(BlobRead, namesAFileThatItCannotRead) {
  const ProgramResult missing = zaroctl({"blob", "read", "/nowhere/at/all"});
  EXPECT_EQ(missing.status, 74);
  EXPECT_EQ(missing.err, "zaroctl: \"/nowhere/at/all\": cannot open: No such file or directory\n");
  const ProgramResult directory = zaroctl({"blob", "read", "/"});
  EXPECT_EQ(directory.status, 74);
  EXPECT_EQ(directory.err, "zaroctl: \"/\": cannot read: Is a directory\n");
}

TEST(BlobWrite, writesARecordOfItsArguments) {
  const ProgramResult result = zaroctl({"blob", "write", "b=2", "a=x=y", "c="});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "a=x=y\r\nb=2\r\nc=\r\n\r\n");
}

TEST(BlobWrite, writesBackWhatBlobReadShows) {
  const zarotest::TemporaryDirectory directory;
  const std::string stored = "a=1\r\nb\\ \t=\\\x1b\x7f\xff\xc3\xa4\t=x\r\n\r\nc= 2\r\n\r\n";
  const std::string lines = filter({"blob", "read"}, stored).out;
  EXPECT_EQ(filter({"blob", "write"}, lines).out, stored);
  EXPECT_EQ(zaroctl({"blob", "write", "--file", directory.write("lines", lines)}).out, stored);
}

TEST(BlobWrite, writesNothingForNothing) {
  const ProgramResult result = filter({"blob", "write"}, "");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "");
}

TEST(BlobWrite, refusesWhatWouldNotComeBack) {
  const struct {
    const char* label;
    const char* line;
    const char* told;
  } cases[] = {
      {"sign in the key", "1\ta=b\tx", "key \"a=b\": a key cannot hold \"=\""},
      {"blank before the key", "1\t a\tx", "key \" a\": a key cannot begin with a blank"},
      {"blank behind the value", "1\ta\tx\\t", "key \"a\": a value cannot end with a blank"},
      {"line feed", "1\ta\tx\\ny", "key \"a\": line feeds and NUL cannot be stored"},
      {"NUL", "1\ta\tx\\x00y", "key \"a\": line feeds and NUL cannot be stored"},
      {"twice", "1\ta\tx\n1\ta\ty", "key \"a\" is there twice"},
      {"no value", "1\ta", "is not record, key and value with TABs between"},
      {"no escape", "1\ta\tx\\q", "a backslash that escapes nothing"},
      {"no hexadecimal number", "1\ta\tx\\xg0", "a backslash that escapes nothing"},
      {"backslash at the end", "1\ta\tx\\", "a backslash that escapes nothing"},
  };
  for (const auto& row : cases) {
    const ProgramResult result = filter({"blob", "write"}, std::string(row.line) + "\n");
    EXPECT_EQ(result.status, 65) << row.label;
    EXPECT_EQ(result.out, "") << row.label;
    EXPECT_THAT(result.err, HasSubstr("zaroctl: standard input: line ")) << row.label;
    EXPECT_THAT(result.err, HasSubstr(row.told)) << row.label;
  }
}

TEST(BlobWrite, refusesArgumentsThatAreNoFields) {
  EXPECT_EQ(zaroctl({"blob", "write", "a"}).status, 64);
  EXPECT_EQ(zaroctl({"blob", "write", "a=1", "--file", "x"}).status, 64);
  EXPECT_EQ(zaroctl({"blob", "write", "a=1 "}).status, 65);
}

}  // namespace
