// What every command of zaroctl has alike: refusals of the command line, help, version, global options.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "programs/Program.h"
#include "support/TemporaryDirectory.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;
using zarotest::linesOf;
using zarotest::ProgramResult;
using zarotest::ProgramRun;
using zarotest::zaroctl;

struct WrongUsage {
  const char* label;
  std::vector<std::string> arguments;
  const char* told;
};

const WrongUsage kWrongUsages[] = {
    {"unknownCommand", {"frobnicate"}, "not expected: frobnicate (see zaroctl --help)"},
    {"groupAlone", {"admin"}, "A subcommand is required (see zaroctl admin --help)"},
    {"unknownCommandOfGroup", {"admin", "frobnicate"}, "not expected: frobnicate (see zaroctl admin --help)"},
    {"missingName", {"admin", "id"}, "NAME is required (see zaroctl admin id --help)"},
    {"twoNames", {"admin", "id", "a", "b"}, "not expected: b (see zaroctl admin id --help)"},
    {"passwordOnTheCommandLine", {"password", "secret"}, "not expected: secret (see zaroctl password --help)"},
    {"unknownOption", {"check", "--frobnicate"}, "not expected: --frobnicate (see zaroctl check --help)"},
    {"unknownOptionWithControlCharacter", {"check", "--a\x1b[31m"}, "not expected: --a\\x1b[31m"},
    {"emptyHome", {"--home", "", "check"}, "--home names no directory"},
    {"homeTwice", {"--home", "/a", "--home", "/b", "check"}, "--home: At Most 1 required"},
    {"initWithoutDirectory", {"init"}, "name the directory to make"},
    {"unknownDatabase", {"init", "--db", "oracle", "/nowhere/at/all"}, "--db: oracle not in {sqlite,postgresql}"},
    {"portTooSmall", {"init", "--db", "postgresql", "--port", "0", "/nowhere/at/all"}, "--port: Value 0 not in range"},
    {"portTooLarge", {"init", "--db", "postgresql", "--port", "65536", "/nowhere/at/all"}, "not in range"},
    {"unknownSslMode", {"init", "--db", "postgresql", "--sslmode", "maybe", "/nowhere/at/all"}, "--sslmode: maybe not in"},
    {"serverOptionForSqlite", {"init", "--host", "localhost", "/nowhere/at/all"}, "--host is for --db postgresql"},
    {"serverFlagForSqlite", {"init", "--no-password", "/nowhere/at/all"}, "--no-password is for --db postgresql"},
};

class WrongUsageOf : public testing::TestWithParam<WrongUsage> {};

TEST_P(WrongUsageOf, isToldInOneLineWithTheStatusOfUsage) {
  const ProgramResult result = zaroctl(GetParam().arguments);
  EXPECT_EQ(result.status, 64);
  EXPECT_EQ(result.out, "");
  ASSERT_EQ(linesOf(result.err).size(), 1u) << result.err;
  EXPECT_THAT(result.err, StartsWith("zaroctl: "));
  EXPECT_THAT(result.err, HasSubstr(GetParam().told));
}

INSTANTIATE_TEST_SUITE_P(, WrongUsageOf, testing::ValuesIn(kWrongUsages),
                         [](const auto& tested) { return std::string(tested.param.label); });

TEST(CommandLine, helpIsPrintedWithExamples) {
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"--help"}, {"-h"}, {"check", "--help"}, {"admin", "id", "-h"}}) {
    const ProgramResult result = zaroctl(arguments);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_THAT(result.out, HasSubstr("\nExample")) << testing::PrintToString(arguments);
    EXPECT_THAT(result.out, HasSubstr("\n  zaroctl ")) << testing::PrintToString(arguments);
  }
}

TEST(CommandLine, versionIsPrinted) {
  const ProgramResult result = zaroctl({"--version"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, testing::MatchesRegex("zaroctl [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

TEST(CommandLine, globalOptionsStandBeforeOrBehindTheCommand) {
  const zarotest::TemporaryDirectory directory;
  const std::string home = directory.path("gateway");
  ASSERT_EQ(zaroctl({"init", "--sample", home}).status, 0);
  const std::string before = zaroctl({"--json", "--home", home, "admin", "id", "admin"}).out;
  EXPECT_THAT(before, HasSubstr("\"name\": \"admin\""));
  EXPECT_EQ(zaroctl({"admin", "id", "admin", "--json", "--home", home}).out, before);
  EXPECT_EQ(zaroctl({"admin", "--home=" + home, "id", "--json", "admin"}).out, before);
}

TEST(CommandLine, homeOptionGoesBeforeTheVariable) {
  const zarotest::TemporaryDirectory directory;
  const std::string home = directory.path("gateway");
  ASSERT_EQ(zaroctl({"init", home}).status, 0);
  ProgramRun run;
  run.environment["ZARO_HOME"] = directory.path("other");
  EXPECT_EQ(zaroctl({"check"}, run).status, 78);
  EXPECT_EQ(zaroctl({"check", "--home", home}, run).status, 0);
}

TEST(CommandLine, outputThatCannotBeWrittenIsAFailure) {
  const zarotest::TemporaryDirectory directory;
  const std::string home = directory.path("gateway");
  ASSERT_EQ(zaroctl({"init", home}).status, 0);
  ProgramRun run;
  run.outputFile = "/dev/full";
  const ProgramResult result = zaroctl({"check", "--home", home}, run);
  EXPECT_EQ(result.status, 74);
  EXPECT_EQ(result.err, "zaroctl: cannot write to standard output: No space left on device\n");
}

TEST(CommandLine, changeWhoseResultCannotBePrintedIsToldAsMade) {
  const zarotest::TemporaryDirectory directory;
  const std::string home = directory.path("gateway");
  ProgramRun run;
  run.outputFile = "/dev/full";
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"init", home}, {"--home", home, "admin", "add", "somebody"}}) {
    const ProgramResult result = zaroctl(arguments, run);
    EXPECT_EQ(result.status, 74);
    EXPECT_EQ(result.err,
              "zaroctl: the change is made, but its result cannot be printed: cannot write to standard output: No space "
              "left on device\n");
  }
  EXPECT_EQ(zaroctl({"--home", home, "admin", "id", "somebody"}).status, 0);
}

TEST(CommandLine, fileThatMayNotGrowIsAFailure) {
  const zarotest::TemporaryDirectory directory;
  ProgramRun run;
  run.outputFile = directory.path("actions");
  run.largestFile = 10;
  const ProgramResult result = zaroctl({"action", "list"}, run);
  EXPECT_EQ(result.status, 74);
  EXPECT_EQ(result.err, "zaroctl: cannot write to standard output: File too large\n");
}

TEST(CommandLine, logAppearsWhenAskedForAndOnlyThen) {
  const zarotest::TemporaryDirectory directory;
  const std::string home = directory.path("gateway");
  ASSERT_EQ(zaroctl({"init", home}).status, 0);
  ASSERT_EQ(std::remove((home + "/sql/ui_GetAdminId.sql").c_str()), 0);
  const std::vector<std::string> quiet = {"--home", home, "admin", "id", "x"};
  std::vector<std::string> verbose = quiet;
  verbose.emplace_back("-v");
  const char* const logged = "miscUtils::_getAdminId: Exception";
  ProgramRun withLevel;
  withLevel.environment["ZARO_LOG_LEVEL"] = "1";
  ProgramRun withFile;
  withFile.environment["ZARO_LOG"] = directory.path("log");
  ProgramRun withNothing;
  withNothing.environment["ZARO_LOG_LEVEL"] = "0";

  EXPECT_THAT(zaroctl(quiet).err, testing::Not(HasSubstr(logged)));
  EXPECT_THAT(zaroctl(verbose).err, HasSubstr(logged));
  EXPECT_THAT(zaroctl(quiet, withLevel).err, HasSubstr(logged));
  EXPECT_THAT(zaroctl(verbose, withNothing).err, testing::Not(HasSubstr(logged)));
  EXPECT_THAT(zaroctl(quiet, withFile).err, testing::Not(HasSubstr(logged)));
  EXPECT_THAT(zarotest::readFile(directory.path("log")), HasSubstr(logged));
}

}  // namespace
