// zaroctl base64: bytes to text and back, from files and standard input.
#include <gmock/gmock.h>

#include "programs/Program.h"
#include "support/TemporaryDirectory.h"

namespace {

using testing::HasSubstr;
using zarotest::ProgramResult;
using zarotest::ProgramRun;
using zarotest::zaroctl;

ProgramResult filter(const std::vector<std::string>& arguments, const std::string& input) {
  ProgramRun run;
  run.input = input;
  return zaroctl(arguments, run);
}

std::string everyByte() {
  std::string bytes;
  for (int byte = 0; byte < 255; ++byte) {  // whole groups
    bytes += static_cast<char>(static_cast<unsigned char>(byte));
  }
  return bytes;
}

TEST(Base64Command, encodesStandardInputAndFiles) {
  const zarotest::TemporaryDirectory directory;
  EXPECT_EQ(filter({"base64", "encode"}, "ABC").out, "QUJD");
  EXPECT_EQ(zaroctl({"base64", "encode", directory.write("bytes", "A")}).out, "QQ==");
  EXPECT_EQ(filter({"base64", "encode", "--json"}, "AB").out, "QUI=") << "bytes stand as they are";
  EXPECT_EQ(filter({"base64", "encode"}, "\x41\x80").out, "/4A=");
}

TEST(Base64Command, encodesNothingAsNothing) {
  const ProgramResult result = filter({"base64", "encode"}, "");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "");
}

TEST(Base64Command, decodesWhatItEncodes) {
  const std::string bytes = everyByte();
  const ProgramResult text = filter({"base64", "encode"}, bytes);
  EXPECT_THAT(text.out, HasSubstr("\r\n"));
  const ProgramResult result = filter({"base64", "decode"}, text.out);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.out, bytes);
}

TEST(Base64Command, cutsLineEndsOffTheEnd) {
  const std::string line = filter({"base64", "encode"}, std::string(57, 'x')).out;
  EXPECT_THAT(line, testing::EndsWith("\r\n"));
  EXPECT_EQ(filter({"base64", "decode"}, line).out, std::string(57, 'x'));
  EXPECT_EQ(filter({"base64", "decode"}, "QUJD\n").out, "ABC");
  EXPECT_EQ(filter({"base64", "decode", "--as-is"}, "QUJD\n").out, std::string("ABC\x08\0\0", 6));
}

constexpr const char* kNotBase64 = "zaroctl: standard input: characters that are not Base64 were skipped\n";
constexpr const char* kOneCharacter =
    "zaroctl: the last group is incomplete: the gateway counts three bytes for its one character, which holds none\n";
constexpr const char* kTwoCharacters =
    "zaroctl: the last group is incomplete: the gateway counts two bytes for its two characters, which hold one\n";
constexpr const char* kThreeCharacters =
    "zaroctl: the last group is incomplete: the gateway counts one byte for its three characters, which hold two\n";
constexpr const char* kSkippedPadding =
    "zaroctl: \"=\" directly behind a character that is skipped is skipped too, and does not end the text\n";
constexpr const char* kRestNotRead = "zaroctl: the text behind the \"=\" that ends it was not read\n";

std::string foreignLast(const std::string& spoilt) {
  return "zaroctl: the text ends in what is not Base64, and the gateway takes a character of that: " + spoilt +
         " not what was encoded\n";
}

TEST(Base64Command, explainsWhereTheGatewayReadsOtherwise) {
  const struct {
    std::vector<std::string> options;
    std::string text;
    std::string bytes;
    std::string explained;
    int status;
  } cases[] = {
      {{}, "QUJDQ", std::string("ABC\x40\0\0", 6), kOneCharacter, 0},
      {{}, "QQ==", std::string("A\0", 2), kTwoCharacters, 0},
      {{}, "QQ", std::string("A\0", 2), kTwoCharacters, 0},
      {{}, "QUI=", "A", kThreeCharacters, 0},
      {{}, "QU=JD***", "A\x40", std::string(kTwoCharacters) + kRestNotRead, 0},
      {{}, "QUJD=\r\nQUJD", "ABC", kRestNotRead, 0},
      {{}, "QUJD\r\n=QUJD", "ABCABC", std::string(kSkippedPadding) + kNotBase64, 65},
      {{}, "QUJDQQ\r\n==", "ABC\xFF", foreignLast("the last byte is") + kSkippedPadding + kNotBase64, 65},
      {{"--as-is"}, "QUJD\r\n", std::string("ABC\x08\0\0", 6), foreignLast("the last three bytes are"), 0},
      {{"--as-is"}, "QUI\n", "\xFF\xFF\x82", foreignLast("the last three bytes are"), 0},
      {{"--as-is"}, "Q\n", "\xF8\x20", foreignLast("the last two bytes are"), 0},
      {{"--as-is"}, "QUJD\r\nQUJDQUJD", "ABCABCABC", "", 0},
      {{"--as-is"}, "QQ==\r\n", std::string("A\0", 2), kTwoCharacters, 0},
      {{}, "QUJD*", std::string("ABC\x08\0\0", 6), foreignLast("the last three bytes are") + kNotBase64, 65},
  };
  for (const auto& row : cases) {
    std::vector<std::string> arguments = {"base64", "decode"};
    arguments.insert(arguments.end(), row.options.begin(), row.options.end());
    const ProgramResult result = filter(arguments, row.text);
    EXPECT_EQ(result.out, row.bytes) << row.text;
    EXPECT_EQ(result.err, row.explained) << row.text;
    EXPECT_EQ(result.status, row.status) << row.text;
  }
}

TEST(Base64Command, tellsOfCharactersThatAreNotBase64) {
  const ProgramResult result = filter({"base64", "decode"}, "QU *JD");
  EXPECT_EQ(result.status, 65);
  EXPECT_EQ(result.out, "ABC");
  EXPECT_EQ(result.err, "zaroctl: standard input: characters that are not Base64 were skipped\n");
}

TEST(Base64Command, decodesNothingAsNothing) {
  for (const char* nothing : {"", "\r\n", "=="}) {
    const ProgramResult result = filter({"base64", "decode"}, nothing);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
  }
}

TEST(Base64Command, namesAFileThatItCannotRead) {
  for (const char* direction : {"encode", "decode"}) {
    const ProgramResult result = zaroctl({"base64", direction, "/nowhere/at/all"});
    EXPECT_EQ(result.status, 74);
    EXPECT_EQ(result.err, "zaroctl: \"/nowhere/at/all\": cannot open: No such file or directory\n");
  }
}

TEST(Base64Command, reportsOutputThatCannotBeWritten) {
  ProgramRun run;
  run.input = "ABC";
  run.outputFile = "/dev/full";
  const ProgramResult result = zaroctl({"base64", "encode"}, run);
  EXPECT_EQ(result.status, 74);
  EXPECT_THAT(result.err, HasSubstr("cannot write to standard output"));
}

}  // namespace
