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

TEST(Base64Command, explainsTheLengthOfAnIncompleteGroup) {
  const ProgramResult two = filter({"base64", "decode"}, "QQ==");
  EXPECT_EQ(two.status, 0);
  EXPECT_EQ(two.out, std::string("A\0", 2));
  EXPECT_THAT(two.err, HasSubstr("one byte more than the text holds"));
  const ProgramResult three = filter({"base64", "decode"}, "QUI=");
  EXPECT_EQ(three.out, "A");
  EXPECT_THAT(three.err, HasSubstr("one byte less than the text holds"));
}

TEST(Base64Command, tellsOfCharactersThatAreNotBase64) {
  const ProgramResult result = filter({"base64", "decode"}, "QU *JD");
  EXPECT_EQ(result.status, 75);
  EXPECT_EQ(result.out, "ABC");
  EXPECT_EQ(result.err, "zaroctl: standard input: characters that are not Base64 were skipped\n");
}

TEST(Base64Command, tellsOfTextBehindThePadding) {
  const ProgramResult result = filter({"base64", "decode"}, "QUJD=\r\nQUJD");
  EXPECT_EQ(result.out, "ABC");
  EXPECT_EQ(result.err, "zaroctl: the text behind the first \"=\" was not read\n");
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
    EXPECT_EQ(result.status, 75);
    EXPECT_EQ(result.err, "zaroctl: \"/nowhere/at/all\": cannot open: No such file or directory\n");
  }
}

TEST(Base64Command, reportsOutputThatCannotBeWritten) {
  ProgramRun run;
  run.input = "ABC";
  run.outputFile = "/dev/full";
  const ProgramResult result = zaroctl({"base64", "encode"}, run);
  EXPECT_EQ(result.status, 75);
  EXPECT_THAT(result.err, HasSubstr("cannot write to standard output"));
}

}  // namespace
